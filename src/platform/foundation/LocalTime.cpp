// Converts time stamps with the C library's calendar, because it supports every form of TZ. Called by the commands
// about past updates, on any thread.
#include "platform/foundation/LocalTime.h"

#include "platform/foundation/Format.h"

#include <charconv>
#include <cstdint>
#include <ctime>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace zul {

namespace {

// Every time stamp of this type is within the calendar's range: the C library's functions cannot fail.
constexpr std::int64_t kSecond = 1000;

std::time_t secondsOf(std::int64_t moment) {
    return static_cast<std::time_t>(moment / kSecond - (moment % kSecond < 0 ? 1 : 0));
}

std::string textOfParts(const std::tm& parts, char separator) {
    return formatted("%.4d-%.2d-%.2d%c%.2d:%.2d:%.2d", parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, separator,
                     parts.tm_hour, parts.tm_min, parts.tm_sec);
}

// Removes a number with the given count of digits and the text after it from the front of text; -1 if they are not
// there.
int takeNumber(std::string_view& text, std::size_t digits, std::string_view follows) {
    if (text.size() < digits) return -1;
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + digits, number);
    if (error != std::errc() || end != text.data() + digits || number < 0) return -1;
    text.remove_prefix(digits);
    if (follows.empty()) return number;
    if (text.empty() || follows.find(text.front()) == std::string_view::npos) return -1;
    text.remove_prefix(1);
    return number;
}

bool isSame(const std::tm& one, const std::tm& other) {
    return one.tm_year == other.tm_year && one.tm_mon == other.tm_mon && one.tm_mday == other.tm_mday &&
           one.tm_hour == other.tm_hour && one.tm_min == other.tm_min && one.tm_sec == other.tm_sec;
}

// The C library normalizes a date that does not exist (31 June) to one that does: a difference shows that it did not
// exist.
std::optional<std::int64_t> momentOfParts(const std::tm& parts, bool isUniversal) {
    std::tm normal = parts;
    // The C library finds out whether daylight saving time applies at that moment.
    normal.tm_isdst = -1;
    const std::time_t seconds = isUniversal ? ::timegm(&normal) : ::mktime(&normal);
    if (!isSame(normal, parts)) return std::nullopt;
    return static_cast<std::int64_t>(seconds) * kSecond;
}

std::optional<std::int64_t> calendarMoment(std::string_view text) {
    std::tm parts{};
    parts.tm_year = takeNumber(text, 4, "-") - 1900;
    parts.tm_mon = takeNumber(text, 2, "-") - 1;
    const bool isDay = text.size() == 2;
    parts.tm_mday = takeNumber(text, 2, isDay ? "" : "T ");
    bool isUniversal = false;
    if (!isDay) {
        if (text.ends_with('Z')) {
            isUniversal = true;
            text.remove_suffix(1);
        }
        parts.tm_hour = takeNumber(text, 2, ":");
        const bool hasSeconds = text.size() > 2;
        parts.tm_min = takeNumber(text, 2, hasSeconds ? ":" : "");
        if (hasSeconds) parts.tm_sec = takeNumber(text, 2, "");
    }
    if (!text.empty()) return std::nullopt;
    // Missing parts are negative and outside every calendar.
    if (parts.tm_year < 0 || parts.tm_mon < 0 || parts.tm_mday < 1 || parts.tm_hour < 0 || parts.tm_min < 0 ||
        parts.tm_sec < 0) {
        return std::nullopt;
    }
    // Where clocks go forward at midnight, the day begins later.
    const auto moment = momentOfParts(parts, isUniversal);
    if (moment || !isDay) return moment;
    parts.tm_hour = 1;
    return momentOfParts(parts, isUniversal);
}

std::int64_t millisecondsOfUnit(char unit) {
    switch (unit) {
    case 's':
        return kSecond;
    case 'm':
        return 60 * kSecond;
    case 'h':
        return 3600 * kSecond;
    case 'd':
        return 86400 * kSecond;
    case 'w':
        return 7 * 86400 * kSecond;
    default:
        return 0;
    }
}

std::optional<std::int64_t> momentBefore(std::string_view text, std::int64_t now) {
    if (text.size() < 2) return std::nullopt;
    const std::int64_t unit = millisecondsOfUnit(text.back());
    std::int64_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size() - 1, count);
    if (unit == 0 || error != std::errc() || end != text.data() + text.size() - 1 || count < 0) return std::nullopt;
    // Half, so that the subtraction below cannot overflow either.
    if (count > std::numeric_limits<std::int64_t>::max() / 2 / unit) return std::nullopt;
    return now - count * unit;
}

} // namespace

std::string localTimeText(std::int64_t moment) {
    const std::time_t seconds = secondsOf(moment);
    std::tm parts{};
    ::localtime_r(&seconds, &parts);
    return textOfParts(parts, ' ');
}

std::string universalTimeText(std::int64_t moment) {
    const std::time_t seconds = secondsOf(moment);
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    return textOfParts(parts, 'T') + formatted(".%.3dZ", ((moment % kSecond) + kSecond) % kSecond);
}

std::optional<std::int64_t> momentFromText(const std::string& text, std::int64_t now) {
    if (const auto before = momentBefore(text, now)) return before;
    return calendarMoment(text);
}

} // namespace zul
