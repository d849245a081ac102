// Arguments of commands that people copy into a shell. Any thread.
#pragma once

#include <string>

namespace zul {

/// The text as one argument for a shell: unchanged if that is safe, in quotes otherwise.
std::string shellWord(const std::string& text);

} // namespace zul
