// A printer's loader parses a firmware image: it checks every record and takes the new version from the header record.
// Independent of the program's own check, so that each can reveal an error of the other. Any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <optional>
#include <string>

namespace zul {

/// The version in the S0 record of a valid image: all records are correct, their number matches the count record (if
/// there is one), and the last record ends the image; zero bytes after the text are padding. nullopt for a damaged
/// image.
std::optional<std::string> versionOfFirmwareImage(const Data& image);

} // namespace zul
