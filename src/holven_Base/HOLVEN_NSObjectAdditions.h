// What every object may want to know. Any thread.
#pragma once

#include <optional>
#include <string>

namespace zul {

/// The path of the running program; nothing when the system does not tell. Logs what it answers.
std::optional<std::string> pathToSelf();

} // namespace zul
