#include "holven_Base/HOLVEN_NSDateAdditions.h"

#include <memory>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

namespace zul {

std::optional<std::string> stringWithUTSFormat(std::chrono::system_clock::time_point date, const std::string& format,
                                               const std::string& timeZone) {
    UErrorCode status = U_ZERO_ERROR;
    // Not the user's calendar, digits or weeks: these texts are read by programs and by people elsewhere.
    const icu::Locale locale("en_US_POSIX");
    icu::SimpleDateFormat formatter(icu::UnicodeString::fromUTF8(format), locale, status);
    if (U_FAILURE(status)) return std::nullopt;
    if (!timeZone.empty()) {
        formatter.adoptTimeZone(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(timeZone)));
    }
    const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(date.time_since_epoch());
    icu::UnicodeString text;
    formatter.format(static_cast<UDate>(sinceEpoch.count()), text, /*posIter=*/nullptr, status);
    if (U_FAILURE(status)) return std::nullopt;
    std::string utf8;
    return text.toUTF8String(utf8);
}

} // namespace zul
