// Decodes bytes of several encodings to UTF-8 text.
// Called for replies, descriptors and file contents; any thread.
#include "holven_Base/HOLVEN_NSStringAdditions.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unicode/ucnv.h>
#include <unicode/unistr.h>

namespace zul {

namespace {

constexpr bool kLittleEndian = std::endian::native == std::endian::little;

struct EncodingRow {
    StringEncoding encoding;
    const char* converter;
    std::size_t unit; // bytes of one unit
};

constexpr auto kEncodings = std::to_array<EncodingRow>({
    {StringEncoding::ascii, "US-ASCII", 1},
    {StringEncoding::japaneseEUC, "EUC-JP", 1},
    {StringEncoding::utf8, "UTF-8", 1},
    {StringEncoding::isoLatin1, "ISO-8859-1", 1},
    {StringEncoding::shiftJIS, "Shift_JIS", 1},
    {StringEncoding::isoLatin2, "ISO-8859-2", 1},
    {StringEncoding::utf16, kLittleEndian ? "UTF-16LE" : "UTF-16BE", 2},
    {StringEncoding::windowsCP1252, "windows-1252", 1},
    {StringEncoding::utf32, kLittleEndian ? "UTF-32LE" : "UTF-32BE", 4},
    {StringEncoding::utf16BigEndian, "UTF-16BE", 2},
    {StringEncoding::utf16LittleEndian, "UTF-16LE", 2},
    {StringEncoding::utf32BigEndian, "UTF-32BE", 4},
    {StringEncoding::utf32LittleEndian, "UTF-32LE", 4},
});
static_assert(std::ranges::is_sorted(kEncodings, {}, &EncodingRow::encoding));

std::optional<EncodingRow> rowFor(StringEncoding encoding) {
    const auto found = std::ranges::lower_bound(kEncodings, encoding, {}, &EncodingRow::encoding);
    if (found == kEncodings.end() || found->encoding != encoding) return std::nullopt;
    return *found;
}

std::uint32_t unitAt(const std::uint8_t* bytes, std::size_t unit) {
    std::uint32_t value = 0;
    for (std::size_t index = 0; index < unit; ++index) {
        const std::size_t shift = 8 * (kLittleEndian ? index : unit - 1 - index);
        value |= static_cast<std::uint32_t>(bytes[index]) << shift;
    }
    return value;
}

// Number of bytes before the first zero unit; only whole units within the maximum are examined.
std::size_t lengthBeforeZero(const std::uint8_t* bytes, std::size_t maximum, std::size_t unit) {
    std::size_t length = 0;
    while (maximum - length >= unit && unitAt(bytes + length, unit) != 0) length += unit;
    return length;
}

// A byte-order mark selects the byte order; the converters that read it have a name without one.
const char* converterFor(const EncodingRow& row, const std::uint8_t* bytes) {
    const std::uint32_t first = unitAt(bytes, row.unit);
    if (row.unit == 2 && (first == 0xFFFE || first == 0xFEFF)) return "UTF-16";
    if (row.unit == 4 && (first == 0xFFFE0000 || first == 0x0000FEFF)) return "UTF-32";
    return row.converter;
}

std::optional<std::string> decoded(const char* converterName, const std::uint8_t* bytes, std::size_t length) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UConverter, decltype(&ucnv_close)> converter(ucnv_open(converterName, &status), &ucnv_close);
    if (U_FAILURE(status)) return std::nullopt;
    // Without this ICU would replace invalid bytes, and the text would look valid.
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    const icu::UnicodeString text(reinterpret_cast<const char*>(bytes), static_cast<std::int32_t>(length),
                                  converter.get(), status);
    if (U_FAILURE(status)) return std::nullopt;
    std::string utf8;
    return text.toUTF8String(utf8);
}

} // namespace

std::optional<std::string> stringWithCString(const void* bytes, std::size_t maxLength, StringEncoding encoding) {
    const auto row = rowFor(encoding);
    if (!row || bytes == nullptr) return std::nullopt;
    const std::size_t maximum = maxLength == 0 ? SIZE_MAX : maxLength;
    if (row->unit > maximum) return std::nullopt;
    const auto* start = static_cast<const std::uint8_t*>(bytes);
    // Compared byte by byte: an unlimited text may end before its third byte.
    if (encoding == StringEncoding::utf8 && maximum > 3 && start[0] == 0xEF && start[1] == 0xBB && start[2] == 0xBF) {
        start += 3; // the mark is not part of the maximum
    }
    const std::size_t length = lengthBeforeZero(start, maximum, row->unit);
    if (length == 0) return std::string{};
    if (length > INT32_MAX) return std::nullopt;
    return decoded(converterFor(*row, start), start, length);
}

std::string stringFromUTF16WithByteOrderMark(std::span<const std::uint8_t> bytes) {
    bool lowByteFirst = false;
    if (bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE) {
        lowByteFirst = true;
        bytes = bytes.subspan(2);
    } else if (bytes.size() >= 2 && bytes[0] == 0xFE && bytes[1] == 0xFF) {
        bytes = bytes.subspan(2);
    }
    icu::UnicodeString text;
    for (std::size_t index = 0; index + 1 < bytes.size(); index += 2) {
        const unsigned high = bytes[lowByteFirst ? index + 1 : index];
        const unsigned low = bytes[lowByteFirst ? index : index + 1];
        text.append(static_cast<char16_t>(high << 8 | low));
    }
    std::string utf8;
    return text.toUTF8String(utf8);
}

} // namespace zul
