// Dates as text. Any thread.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace zul {

/// The date by a pattern of date fields such as "yyyy/MM/dd HH:mm:ss.SSS Z" (YYYY is the year that the week belongs
/// to, which is another one around New Year). In the time zone of the name ("Europe/Paris"), or the machine's for "",
/// with its offset at that date as the C library has it. With the same digits and calendar everywhere, whatever the
/// user's language. nullopt for a pattern without a meaning.
std::optional<std::string> stringWithUTSFormat(std::chrono::system_clock::time_point date, const std::string& format,
                                               const std::string& timeZone = {});

} // namespace zul
