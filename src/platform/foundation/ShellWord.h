// Words of commands that people copy into a shell. Any thread.
#pragma once

#include <string>

namespace zul {

/// The text as one word of a shell: as it is if that is safe, in quotes otherwise.
std::string shellWord(const std::string& text);

} // namespace zul
