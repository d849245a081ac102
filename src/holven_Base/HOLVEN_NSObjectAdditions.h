// Helpers for all classes. Any thread.
#pragma once

#include <optional>
#include <string>

namespace zul {

/// The path of the running program; nullopt if the system does not report it. Logs the result.
std::optional<std::string> pathToSelf();

} // namespace zul
