// Quotes arguments of commands that users copy into a shell. Any thread.
#pragma once

#include <string>

namespace zul {

/// The text as one shell argument: unchanged if that is safe, quoted otherwise.
std::string shellWord(const std::string& text);

} // namespace zul
