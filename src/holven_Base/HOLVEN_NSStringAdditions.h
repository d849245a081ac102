// Text and data helpers beside the standard library's: bytes of many encodings to text, searching, comparing,
// replacing, and hex dumps. Text is UTF-8 throughout; nothing here keeps state. Any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zul {

/// Encodings by their registered numbers; any other number is an encoding without an equivalent here.
enum class StringEncoding : std::uint32_t {
    ascii = 1,
    japaneseEUC = 3,
    utf8 = 4,
    isoLatin1 = 5,
    shiftJIS = 8,
    isoLatin2 = 9,
    utf16 = 10, // of this machine's byte order, unless a mark says otherwise
    windowsCP1252 = 12,
    utf16BigEndian = 0x90000100,
    utf16LittleEndian = 0x94000100,
    utf32 = 0x8C000100,
    utf32BigEndian = 0x98000100,
    utf32LittleEndian = 0x9C000100,
};

/// stringWithCString:maxLength:encoding:  The text before the first zero unit (of 1, 2 or 4 bytes), at most maxLength
/// bytes of it; 0 is no limit. A UTF-8 mark in front is skipped and does not count against maxLength; a UTF-16 or
/// UTF-32 mark decides the byte order. nullopt for an unknown encoding, bytes that are not valid in it, or a maxLength
/// below one unit; "" for no units.
std::optional<std::string> stringWithCString(const void* bytes, std::size_t maxLength, StringEncoding encoding);

/// 16-bit text whose first two bytes are a byte-order mark; without one the high byte comes first. An odd last byte is
/// ignored, a lone surrogate becomes the replacement character.
std::string stringFromUTF16WithByteOrderMark(std::span<const std::uint8_t> bytes);

enum class CompareOptions : unsigned { none = 0, caseInsensitive = 1, backwards = 4, anchored = 8 };
constexpr CompareOptions operator|(CompareOptions one, CompareOptions other) {
    return static_cast<CompareOptions>(static_cast<unsigned>(one) | static_cast<unsigned>(other));
}
constexpr bool contains(CompareOptions options, CompareOptions option) {
    return (static_cast<unsigned>(options) & static_cast<unsigned>(option)) != 0;
}

/// Bytes of a UTF-8 text.
struct TextRange {
    std::size_t location = 0;
    std::size_t length = 0;
    std::size_t end() const { return location + length; }
    friend bool operator==(const TextRange&, const TextRange&) = default;
};

/// Where target is within the range of text: the first place, or the last one backwards; anchored, only at that
/// end. Case is compared character by character. nullopt if it is not there, and for an empty target.
std::optional<TextRange> rangeOfString(std::string_view text, std::string_view target, CompareOptions options,
                                       TextRange range);

/// Compares the last path components without their extensions, ignoring case, by the rules of the user's language.
std::weak_ordering myLocalizedCompare(const std::string& text, const std::string& other);
/// Compares ignoring case, with runs of digits as numbers: file9 comes before file10.
std::weak_ordering numericalCaseInsensitiveCompare(const std::string& text, const std::string& other);

using CharacterSet = std::function<bool(char32_t character)>;
CharacterSet characterSetWithCharactersInString(const std::string& characters);
/// nullopt if text is nullopt.
std::optional<std::string> stringByDeletingCharactersInSet(const std::optional<std::string>& text,
                                                           const CharacterSet& set);

/// Characters counted as 16-bit units, as the callers' ranges are.
struct CharacterRange {
    std::size_t location = 0;
    std::size_t length = 0;
};

/// stringByReplacingSubStrings:withValues:options:range:  Replaces every target within the range by the value of the
/// same index ("" when there are fewer values), one target after the other, each in the result of those before it. Text
/// outside the range stays; a range that reaches beyond the text is cut. nullopt if text is nullopt.
std::optional<std::string> stringByReplacingSubStrings(const std::optional<std::string>& text,
                                                       const std::vector<std::string>& targets,
                                                       const std::vector<std::string>& values, CompareOptions options,
                                                       CharacterRange range);

/// How "%" shows in the character column of a hex dump.
enum class PercentSign { single, doubled };

/// Cells and character column of one row of up to 16 bytes, without offset and line end.
std::string hexDumpRow(std::span<const std::uint8_t> row, PercentSign percentSign);

/// Bytes of the range as lines of offset, cells and characters. A row like the one before it is counted instead of
/// shown, also at the end. Offsets count from the start of data; a range that reaches beyond it is cut.
std::string hexdump(const Data& data, std::size_t location, std::size_t length);

} // namespace zul
