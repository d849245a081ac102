// The reply of the process that holds a printer's lock, to and from JSON. LockService writes it on its private thread;
// LockSocket reads it on the thread that asks.
#include "update/LockAnswer.h"

#include "platform/foundation/Data.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace zul {

using nlohmann::json;

namespace {

constexpr std::size_t kLongestName = 128;      // bytes
constexpr std::size_t kLongestDeviceID = 1024; // bytes; the printers' own have less than 200

struct CharacterRow {
    char32_t first, last;
};

// Characters that move a terminal's cursor, change its colors or make it show the rest of a line in reverse.
constexpr auto kHiddenCharacters = std::to_array<CharacterRow>({
    {0x0000, 0x001F}, // control characters
    {0x007F, 0x009F}, // delete and further control characters
    {0x061C, 0x061C}, // direction mark
    {0x200E, 0x200F}, // direction marks
    {0x2028, 0x202E}, // line and paragraph end, direction overrides
    {0x2066, 0x2069}, // direction isolates
});

bool isHidden(char32_t character) {
    for (const auto& row : kHiddenCharacters) {
        if (character >= row.first && character <= row.last) return true;
    }
    return false;
}

// In bytes, from the first byte of a character; the text must be valid UTF-8.
std::size_t lengthOfCharacter(char first) {
    const auto byte = static_cast<unsigned char>(first);
    return byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

char32_t characterOf(std::string_view bytes) {
    constexpr unsigned char kFirstMasks[] = {0x7F, 0x1F, 0x0F, 0x07};
    char32_t character = static_cast<unsigned char>(bytes[0]) & kFirstMasks[bytes.size() - 1];
    for (const char byte : bytes.substr(1)) character = character << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
    return character;
}

// Cuts between characters, never inside one. longest: bytes.
std::string shownText(const std::string& given, std::size_t longest) {
    const std::string text = repairedUTF8(given);
    std::string shown;
    for (std::size_t at = 0; at < text.size();) {
        const std::string_view bytes = std::string_view(text).substr(at, lengthOfCharacter(text[at]));
        at += bytes.size();
        if (isHidden(characterOf(bytes))) continue;
        if (shown.size() + bytes.size() > longest) break;
        shown += bytes;
    }
    return shown;
}

std::string textOfMember(const json& object, const char* name, std::size_t longest = kLongestName) {
    const auto found = object.find(name);
    if (found == object.end() || !found->is_string()) return {};
    return shownText(found->get_ref<const std::string&>(), longest);
}

// 0 if the member is absent or is not a whole number from 1 to largest.
std::int64_t numberOfMember(const json& object, const char* name, std::int64_t largest) {
    const auto found = object.find(name);
    if (found == object.end() || !found->is_number_unsigned()) return 0;
    const auto number = found->get<std::uint64_t>();
    return number <= static_cast<std::uint64_t>(largest) ? static_cast<std::int64_t>(number) : 0;
}

} // namespace

std::string displayableName(const std::string& text) {
    return shownText(text, kLongestName);
}

std::string lockAnswerLine(const LockAnswer& answer) {
    const json object = {{"program", shownText(answer.program, kLongestName)},
                         {"pid", answer.pid},
                         {"user", shownText(answer.user, kLongestName)},
                         {"since", answer.since},
                         {"activity", shownText(answer.activity, kLongestName)},
                         {"phase", shownText(answer.phase, kLongestName)},
                         {"deviceID", shownText(answer.deviceID, kLongestDeviceID)}};
    return object.dump() + '\n';
}

std::optional<LockAnswer> parseLockAnswer(std::string_view line) {
    if (line.size() > kLongestLockAnswer) return std::nullopt;
    const json object = json::parse(line, nullptr, /*allow_exceptions=*/false);
    if (!object.is_object()) return std::nullopt;
    LockAnswer answer;
    answer.program = textOfMember(object, "program");
    answer.pid = static_cast<int>(numberOfMember(object, "pid", std::numeric_limits<int>::max()));
    answer.user = textOfMember(object, "user");
    answer.since = numberOfMember(object, "since", std::numeric_limits<std::int64_t>::max());
    answer.activity = textOfMember(object, "activity");
    answer.phase = textOfMember(object, "phase");
    answer.deviceID = textOfMember(object, "deviceID", kLongestDeviceID);
    return answer;
}

} // namespace zul
