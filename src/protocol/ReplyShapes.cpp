// The shapes of replies: the texts that each kind of answer may have. Called by QueryExchange on the command queue;
// pure functions over text.
#include "protocol/ReplyShapes.h"

#include "platform/foundation/Data.h"
#include "protocol/CommandFrame.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace zul {

namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kLongestText = 64;
constexpr std::size_t kLongestChecksum = 32;
constexpr std::size_t kLongestCounter = 16;
constexpr std::size_t kLongestSetting = 5;
constexpr std::size_t kChecksumDigits = 4;
constexpr std::string_view kCounterMark = "CL";
constexpr std::string_view kLoaderMark = "FU";

// The codes of the table commands of models with several tables.
constexpr std::uint32_t kFirstTableVersion = 24;
constexpr std::uint32_t kLastTableVersion = 27;
constexpr std::uint32_t kFirstTableChecksum = 28;
constexpr std::uint32_t kLastTableChecksum = 31;

// Of ASCII, whatever the user's language.
bool isDigit(char character) {
    return character >= '0' && character <= '9';
}
bool isLetter(char character) {
    return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z');
}
bool isHexadecimal(char character) {
    return isDigit(character) || (character >= 'A' && character <= 'F') || (character >= 'a' && character <= 'f');
}
bool isControl(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7F;
}

bool isNumber(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, isDigit);
}

bool isMarkedNumber(std::string_view text, std::string_view mark) {
    return text.starts_with(mark) && isNumber(text.substr(mark.size()));
}

// Answers that no other question has.
bool isOfAnotherQuestion(std::string_view text) {
    return isMarkedNumber(text, kCounterMark) || isMarkedNumber(text, kLoaderMark);
}

// A number, which may have a sign and text after it; or the mark of a printer in its loader.
bool fitsStatus(std::string_view text) {
    if (isMarkedNumber(text, kLoaderMark)) return true;
    if (text.front() == '-' || text.front() == '+') text.remove_prefix(1);
    return !text.empty() && isDigit(text.front());
}

bool fitsFirmwareVersion(std::string_view text) {
    // A checksum has letters and digits, too: it is the late answer to another query.
    const bool isChecksum = text.size() == kChecksumDigits && std::ranges::all_of(text, isHexadecimal);
    return std::ranges::any_of(text, isLetter) && std::ranges::any_of(text, isDigit) && !isChecksum;
}

bool fitsLifetimeCounter(std::string_view text) {
    return text.size() <= kLongestCounter && (isNumber(text) || isMarkedNumber(text, kCounterMark));
}

} // namespace

ReplyShape replyShapeFor(std::uint32_t command) {
    switch (command) {
    case kCommandStatus:
        return ReplyShape::status;
    case kCommandFirmwareVersion:
        return ReplyShape::firmwareVersion;
    case kCommandSerialNumber:
        return ReplyShape::serialNumber;
    case kCommandTableVersion:
        return ReplyShape::tableVersion;
    case kCommandTableChecksum:
        return ReplyShape::tableChecksum;
    case kCommandLifetimeCounter:
        return ReplyShape::lifetimeCounter;
    case kCommandGetISerial:
        return ReplyShape::usbSerialSetting;
    default:
        break;
    }
    if (command >= kFirstTableVersion && command <= kLastTableVersion) return ReplyShape::tableVersion;
    if (command >= kFirstTableChecksum && command <= kLastTableChecksum) return ReplyShape::tableChecksum;
    return ReplyShape::anyText;
}

bool fitsShape(const std::optional<std::string>& text, ReplyShape shape) {
    if (!text) return false;
    if (shape == ReplyShape::anyText) return true;
    const std::string trimmed = trimmedWhitespaceAndNewlines(*text);
    // A printer may have nothing to report, for example no serial number.
    if (trimmed.empty()) return true;
    // No answer is as long, and none has control characters: that is the rest of another reply.
    if (trimmed.size() > kLongestText || std::ranges::any_of(trimmed, isControl)) return false;
    const bool hasBlank = trimmed.find(' ') != std::string::npos;
    switch (shape) {
    case ReplyShape::anyText:
        return true;
    case ReplyShape::status:
        return fitsStatus(trimmed);
    case ReplyShape::firmwareVersion:
        return fitsFirmwareVersion(trimmed) && !isOfAnotherQuestion(trimmed);
    case ReplyShape::serialNumber:
        return !isOfAnotherQuestion(trimmed);
    case ReplyShape::lifetimeCounter:
        return fitsLifetimeCounter(trimmed);
    case ReplyShape::tableVersion:
        return !hasBlank && !isOfAnotherQuestion(trimmed);
    case ReplyShape::tableChecksum:
        return !hasBlank && !isOfAnotherQuestion(trimmed) && trimmed.size() <= kLongestChecksum;
    case ReplyShape::usbSerialSetting:
        return isNumber(trimmed) && trimmed.size() <= kLongestSetting;
    }
    return true;
}

bool isReplyHeader(std::span<const std::uint8_t> bytes) {
    if (bytes.size() != kHeaderSize) return false;
    std::string text(bytes.begin(), bytes.end());
    text.erase(0, text.find_first_not_of(' '));
    text.resize(text.find_last_not_of(' ') + 1);
    return isNumber(text);
}

} // namespace zul
