// Type-safe printf-style formatting. Include it in source files only: it makes other headers slow to compile.
#pragma once

#include "platform/foundation/SystemLog.h"

#include <fmt/printf.h>
#include <optional>
#include <string>

namespace zul {

/// The formatted text; format has printf's conversions.
template <class... Arguments> std::string formatted(const char* format, const Arguments&... arguments) {
    return fmt::sprintf(format, arguments...);
}

/// Writes a formatted text to the system log.
template <class... Arguments> void logText(const char* format, const Arguments&... arguments) {
    systemLog(fmt::sprintf(format, arguments...));
}

/// The text, or "(null)" for nullopt.
inline std::string textOrNull(const std::optional<std::string>& text) {
    return text.value_or("(null)");
}

} // namespace zul
