// Where the user's own files are. Any thread.
#pragma once

#include <string>

namespace zul {

/// The user's home folder, from the environment or else from the user database; empty when neither knows it.
std::string homeFolder();

/// The path with its leading "~" (as a whole, or before a slash) replaced by the home folder. Everything else stays as
/// it is given: only the system knows where a link leads.
std::string pathWithHome(const std::string& path);

} // namespace zul
