// Replaces characters that control a terminal or the text direction of a window: device texts must do neither.
// Called wherever a device's text is shown or logged; any thread.
#include "platform/foundation/PrintableText.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

namespace zul {

namespace {

bool isCommand(UChar32 character) {
    return character < 0 || u_charType(character) == U_CONTROL_CHAR ||
           u_hasBinaryProperty(character, UCHAR_BIDI_CONTROL);
}

// Replaces each control character and keeps all others byte for byte. A character of -1 means bytes that are not UTF-8.
template <class Replacement> std::string withoutCommands(std::string_view text, Replacement replacement) {
    std::string result;
    result.reserve(text.size());
    const auto length = static_cast<std::int32_t>(text.size());
    for (std::int32_t index = 0; index < length;) {
        const std::int32_t start = index;
        UChar32 character = 0;
        U8_NEXT(text.data(), index, length, character);
        const std::string_view bytes =
            text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(index - start));
        if (isCommand(character)) {
            result += replacement(character, bytes);
        } else {
            result += bytes;
        }
    }
    return result;
}

std::string escaped(UChar32 character) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "\\u%.4x", static_cast<unsigned>(character));
    return text.data();
}

} // namespace

std::string printable(std::string_view text) {
    return withoutCommands(text, [](UChar32 character, std::string_view) { return character == '\n' ? "\n" : "?"; });
}

std::string printableInLine(std::string_view text) {
    return withoutCommands(text, [](UChar32, std::string_view) { return "?"; });
}

std::string printableJson(std::string_view json) {
    // Raw line ends occur only between values; within values JSON has them escaped.
    return withoutCommands(json, [](UChar32 character, std::string_view bytes) {
        return character < 0x20 ? std::string(bytes) : escaped(character);
    });
}

} // namespace zul
