// Formats dates with ICU in the machine's time zone or in a named one.
// Called for log lines; any thread.
#include "holven_Base/HOLVEN_NSDateAdditions.h"

#include <chrono>
#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <unicode/simpletz.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

namespace zul {

namespace {

// The machine's zone at that time. ICU finds a zone by name but does not support POSIX rules in TZ
// ("CET-1CEST,M3.5.0,M10.5.0/3"): the offset of the C library is used, as in every other program. Null if ICU's zone
// agrees with it.
std::unique_ptr<icu::TimeZone> machineZoneUnlikeICU(UDate date) {
    constexpr double kMillisecondsPerSecond = 1000;
    const auto seconds = static_cast<std::time_t>(date / kMillisecondsPerSecond);
    std::tm local{};
    if (::localtime_r(&seconds, &local) == nullptr) return nullptr;
    const auto offset = static_cast<std::int32_t>(local.tm_gmtoff * static_cast<long>(kMillisecondsPerSecond));
    const std::unique_ptr<icu::TimeZone> found(icu::TimeZone::createDefault());
    std::int32_t rawOffset = 0;
    std::int32_t summerOffset = 0;
    UErrorCode status = U_ZERO_ERROR;
    found->getOffset(date, /*local=*/false, rawOffset, summerOffset, status);
    if (U_SUCCESS(status) && rawOffset + summerOffset == offset) return nullptr;
    return std::make_unique<icu::SimpleTimeZone>(offset, icu::UnicodeString(local.tm_zone));
}

} // namespace

std::optional<std::string> stringWithUTSFormat(std::chrono::system_clock::time_point date, const std::string& format,
                                               const std::string& timeZone) {
    UErrorCode status = U_ZERO_ERROR;
    // Without the user's calendar, digits or weeks: programs and people elsewhere read these texts.
    const icu::Locale locale("en_US_POSIX");
    icu::SimpleDateFormat formatter(icu::UnicodeString::fromUTF8(format), locale, status);
    if (U_FAILURE(status)) return std::nullopt;
    const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(date.time_since_epoch());
    const auto milliseconds = static_cast<UDate>(sinceEpoch.count());
    if (!timeZone.empty()) {
        formatter.adoptTimeZone(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(timeZone)));
    } else if (auto zone = machineZoneUnlikeICU(milliseconds)) {
        formatter.adoptTimeZone(zone.release());
    }
    icu::UnicodeString text;
    formatter.format(milliseconds, text, /*posIter=*/nullptr, status);
    if (U_FAILURE(status)) return std::nullopt;
    std::string utf8;
    return text.toUTF8String(utf8);
}

} // namespace zul
