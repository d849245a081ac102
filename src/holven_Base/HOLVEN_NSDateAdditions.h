// Formats dates. Any thread.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace zul {

/// Formats date with a pattern such as "yyyy/MM/dd HH:mm:ss.SSS Z". YYYY is the week-based year, which differs around
/// New Year. timeZone is a name ("Europe/Paris"); "" is the machine's zone, with the C library's offset for that date.
/// Digits and calendar do not depend on the user's language. nullopt for an invalid pattern.
std::optional<std::string> stringWithUTSFormat(std::chrono::system_clock::time_point date, const std::string& format,
                                               const std::string& timeZone = {});

} // namespace zul
