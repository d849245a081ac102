// printf-shaped texts, type-safe. Only for source files: headers that others include stay free of it.
#pragma once

#include "platform/foundation/SystemLog.h"

#include <fmt/printf.h>
#include <optional>
#include <string>

namespace zul {

template <class... Arguments> std::string formatted(const char* format, const Arguments&... arguments) {
    return fmt::sprintf(format, arguments...);
}

/// A formatted text for the system log.
template <class... Arguments> void logText(const char* format, const Arguments&... arguments) {
    systemLog(fmt::sprintf(format, arguments...));
}

/// How a missing text shows wherever one is printed.
inline std::string textOrNull(const std::optional<std::string>& text) {
    return text.value_or("(null)");
}

} // namespace zul
