// The digest of an archive file: a keyed hash as text. Pure functions, any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <string>

namespace zul {

/// Each byte as two lower-case hexadecimal digits, without separators.
std::string hexText(const Data& data);

/// HMAC-SHA256 of data under key, followed by a zero byte, as hexText: 66 characters.
std::string keyedDigest(const std::string& key, const Data& data);

} // namespace zul
