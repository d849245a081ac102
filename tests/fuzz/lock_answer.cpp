// Another process sends an arbitrary reply about a printer's lock: the result is displayable text or nullopt.
#include "fuzz/FuzzInput.h"

#include "platform/foundation/Data.h"
#include "update/LockAnswer.h"

using namespace zul;
using namespace zul::test;

namespace {

constexpr std::size_t kLongestName = 128; // bytes

void requireDisplayable(const std::string& text) {
    require(text.size() <= kLongestName, "a text is cut");
    require(stringFromUTF8(text).has_value(), "a text is UTF-8");
    for (const char byte : text) require(static_cast<unsigned char>(byte) >= 0x20 && byte != 0x7F, "no controls");
    for (const char* direction : {"\u202A", "\u202E", "\u2066", "\u200F", "\u061C", "\u0085"}) {
        require(text.find(direction) == std::string::npos, "no marks of direction");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string line(reinterpret_cast<const char*>(bytes), size);
    requireDisplayable(displayableName(line));
    const auto answer = parseLockAnswer(line);
    if (!answer) return 0;
    for (const std::string* name : {&answer->program, &answer->user, &answer->activity, &answer->phase}) {
        requireDisplayable(*name);
    }
    require(answer->pid >= 0 && answer->since >= 0, "numbers are counts");
    const std::string again = lockAnswerLine(*answer);
    require(again.size() <= kLongestLockAnswer, "an answer fits its limit");
    require(parseLockAnswer(again) == answer, "an answer is read as it was sent");
    return 0;
}
