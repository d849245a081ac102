// Converts bytes to text and text to numbers, with the rules for printer replies.
// Used by the engine, the archive and the settings. Pure functions; any thread.
#include "platform/foundation/Data.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

namespace zul {

std::optional<std::string> stringFromUTF8(std::string_view bytes) {
    std::int32_t index = 0;
    const auto length = static_cast<std::int32_t>(bytes.size());
    while (index < length) {
        UChar32 character = 0;
        U8_NEXT(bytes.data(), index, length, character);
        if (character < 0) return std::nullopt;
    }
    return std::string(bytes);
}

std::string repairedUTF8(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    std::int32_t index = 0;
    const auto length = static_cast<std::int32_t>(bytes.size());
    while (index < length) {
        const auto start = static_cast<std::size_t>(index);
        UChar32 character = 0;
        U8_NEXT(bytes.data(), index, length, character);
        text += character > 0 ? bytes.substr(start, static_cast<std::size_t>(index) - start) : "\xEF\xBF\xBD";
    }
    return text;
}

std::optional<std::string> stringFromNulTerminatedUTF8(const Data& data) {
    const auto end = std::ranges::find(data, std::uint8_t{0});
    return stringFromUTF8({reinterpret_cast<const char*>(data.data()), static_cast<std::size_t>(end - data.begin())});
}

std::string trimmedWhitespaceAndNewlines(const std::string& text) {
    const auto length = static_cast<std::int32_t>(text.size());
    std::int32_t first = -1; // first byte of the kept range
    std::int32_t last = -1;
    for (std::int32_t index = 0; index < length;) {
        const std::int32_t start = index;
        UChar32 character = 0;
        U8_NEXT(text.data(), index, length, character);
        if (character >= 0 && u_isUWhiteSpace(character)) continue;
        if (first < 0) first = start;
        last = index;
    }
    if (first < 0) return {};
    return text.substr(static_cast<std::size_t>(first), static_cast<std::size_t>(last - first));
}

namespace {
std::string_view withoutLeadingBlanks(std::string_view text) {
    const auto start = text.find_first_not_of(" \t\n\v\f\r");
    return start == std::string_view::npos ? std::string_view{} : text.substr(start);
}

// Start of a number. Skips a plus; a second sign after it makes the text invalid.
std::string_view withoutBlanksAndPlus(std::string_view text) {
    text = withoutLeadingBlanks(text);
    if (!text.starts_with('+')) return text;
    text.remove_prefix(1);
    return text.starts_with('-') ? std::string_view{} : text;
}
} // namespace

std::int64_t integerValue(const std::string& text) {
    const std::string_view digits = withoutBlanksAndPlus(text);
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    // A number that is too large becomes the nearest one that can be stored.
    if (error != std::errc::result_out_of_range) return value;
    return digits.starts_with('-') ? std::numeric_limits<std::int64_t>::min()
                                   : std::numeric_limits<std::int64_t>::max();
}

double doubleValue(const std::string& text) {
    const std::string_view digits = withoutBlanksAndPlus(text);
    // Accepts only a plain number: from_chars would also accept "inf" and "nan", which no version contains.
    const std::size_t firstDigit = digits.starts_with('-') ? 1 : 0;
    if (digits.size() <= firstDigit) return 0.0;
    const char first = digits[firstDigit];
    if (first != '.' && (first < '0' || first > '9')) return 0.0;
    double value = 0.0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed);
    return value;
}

bool boolValue(const std::string& text) {
    const std::string_view trimmed = withoutLeadingBlanks(text);
    if (!trimmed.empty() && std::string_view("YyTt").find(trimmed.front()) != std::string_view::npos) return true;
    return integerValue(text) != 0;
}

} // namespace zul
