// Moments as people write and read them. A moment is milliseconds since 1970; the zone is the machine's (TZ). Any
// thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zul {

/// "2026-11-22 14:05:07" in the machine's zone.
std::string localTimeText(std::int64_t moment);

/// "2026-11-22T13:05:07.250Z", for programs.
std::string universalTimeText(std::int64_t moment);

/// Reads a day ("2026-11-01": its beginning), a time ("2026-11-01T10:00", also with seconds and with a space for the
/// "T"; in the machine's zone, or with "Z" universal), or how long before now ("90s", "45m", "12h", "7d", "2w").
/// nullopt for anything else, and for days and times that do not exist.
std::optional<std::int64_t> momentFromText(const std::string& text, std::int64_t now);

} // namespace zul
