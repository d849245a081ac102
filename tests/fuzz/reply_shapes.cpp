// Any text as the reply to any query: a shape accepts only short printable text, and replies with a mark of their query
// do not fit other queries.
#include "fuzz/FuzzInput.h"

#include "platform/foundation/Data.h"
#include "protocol/ReplyShapes.h"

#include <cstdlib>

using namespace zul;
using namespace zul::test;

namespace {

constexpr std::size_t kLongestText = 64;
constexpr std::size_t kHeaderSize = 8;
constexpr std::uint32_t kCommands = 45;

void judge(const std::string& text, ReplyShape shape) {
    if (!fitsShape(text, shape) || shape == ReplyShape::anyText) return;
    const std::string trimmed = trimmedWhitespaceAndNewlines(text);
    require(trimmed.size() <= kLongestText, "what fits is short");
    for (const char character : trimmed) {
        const auto byte = static_cast<unsigned char>(character);
        require(byte >= 0x20 && byte != 0x7F, "what fits commands no terminal");
    }
    if (trimmed == "FU00001") require(shape == ReplyShape::status, "the loader's mark is only a status");
    if (shape == ReplyShape::lifetimeCounter || shape == ReplyShape::usbSerialSetting) {
        require(trimmed.find_first_not_of("CL0123456789") == std::string::npos, "a number is made of digits");
    }
}

void judgeHeader(const Data& bytes) {
    if (!isReplyHeader(bytes)) return;
    require(bytes.size() == kHeaderSize, "a header is eight bytes");
    const std::string text(bytes.begin(), bytes.end());
    const long length = std::strtol(text.c_str(), nullptr, 10);
    require(length >= 0 && length <= 99'999'999, "a header is a length");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    FuzzInput input(bytes, size);
    const std::uint32_t command = input.takeByte() % kCommands;
    const Data rest = input.takeRest();
    judgeHeader(rest);
    // In the form of a reply's text: UTF-8, or nullopt.
    const auto text = stringFromNulTerminatedUTF8(rest);
    if (!text) {
        require(!fitsShape(text, replyShapeFor(command)), "invalid text fits no shape");
        return 0;
    }
    judge(*text, replyShapeFor(command));
    require(fitsShape("", replyShapeFor(command)), "an empty reply fits every query");
    return 0;
}
