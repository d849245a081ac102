// Converts time stamps to text and back. A time stamp is in milliseconds since 1970; the time zone is the machine's
// (TZ). Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zul {

/// "2026-11-22 14:05:07" in the machine's zone.
std::string localTimeText(std::int64_t moment);

/// "2026-11-22T13:05:07.250Z", for scripts.
std::string universalTimeText(std::int64_t moment);

/// Reads a day ("2026-11-01": its start), a time ("2026-11-01T10:00", optionally with seconds or a space for the "T";
/// in the machine's zone, or in UTC with "Z"), or an age ("90s", "45m", "12h", "7d", "2w" before now). nullopt for
/// anything else and for days and times that do not exist.
std::optional<std::int64_t> momentFromText(const std::string& text, std::int64_t now);

} // namespace zul
