// Text and data helpers that the standard library lacks: decoding bytes of many encodings, searching, comparing,
// replacing, and hex dumps. Text is UTF-8; no function keeps state. Any thread.
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

/// Encodings by their registered numbers; any other number is unsupported.
enum class StringEncoding : std::uint32_t {
    ascii = 1,
    japaneseEUC = 3,
    utf8 = 4,
    isoLatin1 = 5,
    shiftJIS = 8,
    isoLatin2 = 9,
    utf16 = 10, // in the machine's byte order unless a byte-order mark is present
    windowsCP1252 = 12,
    utf16BigEndian = 0x90000100,
    utf16LittleEndian = 0x94000100,
    utf32 = 0x8C000100,
    utf32BigEndian = 0x98000100,
    utf32LittleEndian = 0x9C000100,
};

/// stringWithCString:maxLength:encoding:  The text before the first zero unit (of 1, 2 or 4 bytes), at most maxLength
/// bytes; 0 is no limit. A leading UTF-8 mark is skipped and not included in maxLength; a UTF-16 or UTF-32 mark selects
/// the byte order. nullopt for an unknown encoding, invalid bytes, or a maxLength below one unit; "" for no units.
std::optional<std::string> stringWithCString(const void* bytes, std::size_t maxLength, StringEncoding encoding);

/// Decodes UTF-16 with a byte-order mark in its first two bytes; big-endian without one. An odd last byte is ignored, a
/// lone surrogate becomes the replacement character.
std::string stringFromUTF16WithByteOrderMark(std::span<const std::uint8_t> bytes);

/// May be combined.
enum class CompareOptions : unsigned { none = 0, caseInsensitive = 1, backwards = 4, anchored = 8 };
constexpr CompareOptions operator|(CompareOptions one, CompareOptions other) {
    return static_cast<CompareOptions>(static_cast<unsigned>(one) | static_cast<unsigned>(other));
}
/// Whether option is one of the combined options.
constexpr bool contains(CompareOptions options, CompareOptions option) {
    return (static_cast<unsigned>(options) & static_cast<unsigned>(option)) != 0;
}

/// A range of bytes of a UTF-8 text.
struct TextRange {
    std::size_t location = 0;
    std::size_t length = 0;
    std::size_t end() const { return location + length; } // of the first byte after the range
    friend bool operator==(const TextRange&, const TextRange&) = default;
};

/// Position of target within range of text: the first, or with backwards the last; with anchored, only at that end.
/// Case-insensitive search compares character by character. nullopt if not found, and for an empty target.
std::optional<TextRange> rangeOfString(std::string_view text, std::string_view target, CompareOptions options,
                                       TextRange range);

/// Compares the last path components without their extensions, ignoring case, with the collation of the user's
/// language.
std::weak_ordering myLocalizedCompare(const std::string& text, const std::string& other);
/// Compares without case, with runs of digits as numbers: file9 is before file10.
std::weak_ordering numericalCaseInsensitiveCompare(const std::string& text, const std::string& other);

using CharacterSet = std::function<bool(char32_t character)>;
/// The set of the given characters.
CharacterSet characterSetWithCharactersInString(const std::string& characters);
/// text without the characters of set; nullopt if text is nullopt.
std::optional<std::string> stringByDeletingCharactersInSet(const std::optional<std::string>& text,
                                                           const CharacterSet& set);

/// A range of UTF-16 units.
struct CharacterRange {
    std::size_t location = 0;
    std::size_t length = 0;
};

/// stringByReplacingSubStrings:withValues:options:range:  Replaces every target within the range by the value of the
/// same index ("" if there are fewer values). The targets are replaced one after the other, each in the result of the
/// previous one. Text outside the range is unchanged; a range beyond the text is cut. nullopt if text is nullopt.
std::optional<std::string> stringByReplacingSubStrings(const std::optional<std::string>& text,
                                                       const std::vector<std::string>& targets,
                                                       const std::vector<std::string>& values, CompareOptions options,
                                                       CharacterRange range);

/// How "%" is printed in the character column of a hex dump.
enum class PercentSign { single, doubled };

/// Cells and character column of a row of up to 16 bytes, without offset and line end.
std::string hexDumpRow(std::span<const std::uint8_t> row, PercentSign percentSign);

/// The bytes of the range as lines of offset, cells and characters. Rows equal to the previous one are replaced by a
/// count, also at the end. Offsets are relative to the start of data; a range beyond it is cut.
std::string hexdump(const Data& data, std::size_t location, std::size_t length);

} // namespace zul
