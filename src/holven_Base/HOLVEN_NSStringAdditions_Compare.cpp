// Searches, compares and replaces text.
// Pure functions; any thread.
#include "holven_Base/HOLVEN_NSStringAdditions.h"

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unicode/coll.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>
#include <vector>

namespace zul {

namespace {

// End of the match of target at the start of text; nullopt if there is none. Case is folded per character, so that the
// length of the match is in bytes of text, whatever the language does with capitals.
std::optional<std::size_t> matchEnd(std::string_view text, std::string_view target, bool ignoringCase) {
    if (!ignoringCase) return text.starts_with(target) ? std::optional(target.size()) : std::nullopt;
    std::int32_t textIndex = 0;
    std::int32_t targetIndex = 0;
    const auto textLength = static_cast<std::int32_t>(text.size());
    const auto targetLength = static_cast<std::int32_t>(target.size());
    while (targetIndex < targetLength) {
        if (textIndex >= textLength) return std::nullopt;
        UChar32 one = 0;
        UChar32 other = 0;
        U8_NEXT(text.data(), textIndex, textLength, one);
        U8_NEXT(target.data(), targetIndex, targetLength, other);
        // Invalid UTF-8 matches nothing, not even itself.
        if (one < 0 || other < 0 || u_foldCase(one, U_FOLD_CASE_DEFAULT) != u_foldCase(other, U_FOLD_CASE_DEFAULT)) {
            return std::nullopt;
        }
    }
    return static_cast<std::size_t>(textIndex);
}

bool startsCharacter(std::string_view text, std::size_t offset) {
    return offset >= text.size() || !U8_IS_TRAIL(text[offset]);
}

enum class Digits { asCharacters, asNumbers };

std::weak_ordering collated(const std::string& text, const std::string& other, const icu::Locale& locale,
                            Digits digits) {
    // Folds first: the "C" collation compares code points, whatever the strength.
    const icu::UnicodeString one = icu::UnicodeString::fromUTF8(text).foldCase();
    const icu::UnicodeString two = icu::UnicodeString::fromUTF8(other).foldCase();
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance(locale, status));
    if (U_FAILURE(status)) return one.compare(two) <=> 0;
    collator->setStrength(icu::Collator::SECONDARY); // compares accents, ignores case
    if (digits == Digits::asNumbers) collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    const UCollationResult result = collator->compare(one, two, status);
    if (result == UCOL_EQUAL) return std::weak_ordering::equivalent;
    return result == UCOL_LESS ? std::weak_ordering::less : std::weak_ordering::greater;
}

std::string lastPathComponentWithoutExtension(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return std::filesystem::path(path).stem().string();
}

std::string replacingOccurrences(const std::string& text, const std::string& target, const std::string& value,
                                 CompareOptions options) {
    std::vector<TextRange> matches;
    TextRange rest{0, text.size()};
    while (const auto match = rangeOfString(text, target, options, rest)) {
        matches.push_back(*match);
        if (contains(options, CompareOptions::backwards)) {
            rest.length = match->location;
        } else {
            rest = {match->end(), text.size() - match->end()};
        }
    }
    std::ranges::sort(matches, {}, &TextRange::location);
    std::string result;
    std::size_t done = 0;
    for (const TextRange& match : matches) {
        result.append(text, done, match.location - done).append(value);
        done = match.end();
    }
    return result.append(text, done);
}

std::string utf8(const icu::UnicodeString& text) {
    std::string result;
    return text.toUTF8String(result);
}

} // namespace

std::optional<TextRange> rangeOfString(std::string_view text, std::string_view target, CompareOptions options,
                                       TextRange range) {
    if (target.empty() || range.location > text.size()) return std::nullopt;
    const std::string_view searched = text.substr(range.location, range.length);
    const bool ignoringCase = contains(options, CompareOptions::caseInsensitive);
    const bool backwards = contains(options, CompareOptions::backwards);
    const bool anchored = contains(options, CompareOptions::anchored);
    for (std::size_t step = 0; step <= searched.size(); ++step) {
        const std::size_t offset = backwards ? searched.size() - step : step;
        if (anchored && !backwards && offset > 0) break;
        if (!startsCharacter(searched, offset)) continue;
        const auto length = matchEnd(searched.substr(offset), target, ignoringCase);
        if (length && (!anchored || !backwards || offset + *length == searched.size())) {
            return TextRange{range.location + offset, *length};
        }
    }
    return std::nullopt;
}

std::weak_ordering myLocalizedCompare(const std::string& text, const std::string& other) {
    return collated(lastPathComponentWithoutExtension(text), lastPathComponentWithoutExtension(other),
                    icu::Locale::getDefault(), Digits::asCharacters);
}

std::weak_ordering numericalCaseInsensitiveCompare(const std::string& text, const std::string& other) {
    return collated(text, other, icu::Locale::getRoot(), Digits::asNumbers);
}

CharacterSet characterSetWithCharactersInString(const std::string& characters) {
    return [set = icu::UnicodeString::fromUTF8(characters)](char32_t character) {
        return set.indexOf(static_cast<UChar32>(character)) >= 0;
    };
}

std::optional<std::string> stringByDeletingCharactersInSet(const std::optional<std::string>& text,
                                                           const CharacterSet& set) {
    if (!text) return std::nullopt;
    std::string result;
    const auto length = static_cast<std::int32_t>(text->size());
    for (std::int32_t index = 0; index < length;) {
        const std::int32_t start = index;
        UChar32 character = 0;
        U8_NEXT(text->data(), index, length, character);
        if (character >= 0 && set(static_cast<char32_t>(character))) continue;
        result.append(*text, static_cast<std::size_t>(start), static_cast<std::size_t>(index - start));
    }
    return result;
}

std::optional<std::string> stringByReplacingSubStrings(const std::optional<std::string>& text,
                                                       const std::vector<std::string>& targets,
                                                       const std::vector<std::string>& values, CompareOptions options,
                                                       CharacterRange range) {
    if (!text) return std::nullopt;
    const icu::UnicodeString whole = icu::UnicodeString::fromUTF8(*text);
    const auto count = static_cast<std::size_t>(whole.length());
    const std::size_t start = std::min(range.location, count);
    const std::size_t end = start + std::min(range.length, count - start);
    const auto first = static_cast<std::int32_t>(start);
    const auto last = static_cast<std::int32_t>(end);
    std::string working = utf8(whole.tempSubStringBetween(first, last));
    for (std::size_t index = 0; index < targets.size(); ++index) {
        working = replacingOccurrences(working, targets[index], index < values.size() ? values[index] : "", options);
    }
    return utf8(whole.tempSubStringBetween(0, first)) + working + utf8(whole.tempSubString(last));
}

} // namespace zul
