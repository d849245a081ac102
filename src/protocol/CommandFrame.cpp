// The table of commands and the layout of a frame. Pure functions, any thread; called by the printer and its channel
// for each command that they send.
#include "protocol/CommandFrame.h"

#include "platform/foundation/Data.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zul {

namespace {

enum class Payload { none, four, eight, eightExactly, asGiven };

struct Command {
    std::uint32_t code;
    std::string_view text;
    Payload payload;
};

// The class is six characters wide and runs straight into the sub-command: the blanks belong to the class. The numbers
// that are missing are reserved.
// clang-format off
constexpr auto kCommands = std::to_array<Command>({
    { 0, "STATUS",                 Payload::none},
    { 1, "INFO  FVER",             Payload::none},
    { 2, "INFO  SERIAL_NUMBER",    Payload::none},
    { 4, "INFO  MEDIA",            Payload::none},
    { 7, "INFO  FREE_PBUFFER",     Payload::none},
    { 8, "INFO  MQTY",             Payload::none},
    {11, "IMAGE MULTICUT",         Payload::eightExactly},
    {12, "CNTRL OVERCOAT",         Payload::eightExactly},
    {13, "IMAGE YPLANE",           Payload::asGiven},
    {14, "IMAGE MPLANE",           Payload::asGiven},
    {15, "IMAGE CPLANE",           Payload::asGiven},
    {16, "CNTRL CUTTER",           Payload::eightExactly},
    {17, "CNTRL START",            Payload::none},
    {19, "TBL_CL",                 Payload::none},
    {20, "TBL_WTCTRLD_UPDATE_CW",  Payload::asGiven},
    {21, "TBL_RDVersion",          Payload::none},
    {22, "TBL_WTVersion",          Payload::asGiven},
    {23, "MNT_RDCTRLD_CHKSUM",     Payload::none},
    {24, "TBL_RDCWD300_Version",   Payload::asGiven},
    {25, "TBL_RDCWD600_Version",   Payload::asGiven},
    {26, "TBL_RDCWD610_Version",   Payload::asGiven},
    {27, "TBL_RDCWD620_Version",   Payload::asGiven},
    {28, "TBL_RDCWD300_Checksum",  Payload::asGiven},
    {29, "TBL_RDCWD600_Checksum",  Payload::asGiven},
    {30, "TBL_RDCWD610_Checksum",  Payload::asGiven},
    {31, "TBL_RDCWD620_Checksum",  Payload::asGiven},
    {32, "MNT_RDCOUNTER_LIFE",     Payload::none},
    {33, "MNT_RDCOUNTER_A",        Payload::none},
    {34, "MNT_RDCOUNTER_B",        Payload::none},
    {35, "MNT_WTCOUNTER_CLR",      Payload::four},
    {36, "MNT_RDCOUNTER_P",        Payload::none},
    {37, "MNT_WTCOUNTERP_SET",     Payload::eight},
    {38, "MNT_RDCOUNTER_MATTE",    Payload::none},
    {39, "MNT_RDCOUNTER_M",        Payload::none},
    {40, "FW_UPDFLASH_REWRITE",    Payload::none},
    {41, "FW_UPDFLASH_PROGRAM",    Payload::asGiven},
    {42, "MNT_WTUSB_ISERI_SET",    Payload::four},
    {43, "MNT_RDUSB_ISERI_SET",    Payload::none},
});
// clang-format on
static_assert(std::ranges::is_sorted(kCommands, {}, &Command::code));

constexpr std::size_t kTextOffset = 2;
constexpr std::size_t kTextRoom = 22;
constexpr std::size_t kSizeOffset = 24;
constexpr std::size_t kSizeDigits = 8;
constexpr std::size_t kLargestSize = 99'999'999; // what so many digits hold

// The numbers of the internal errors that support staff know.
constexpr int kCommandTextDoesNotFit = 486;
constexpr int kPayloadSizeDoesNotFit = 494;

static_assert(std::ranges::all_of(kCommands, [](const Command& entry) { return entry.text.size() < kTextRoom; }));

const Command* commandWithCode(std::uint32_t code) {
    const auto found = std::ranges::lower_bound(kCommands, code, {}, &Command::code);
    return found == kCommands.end() || found->code != code ? nullptr : &*found;
}

} // namespace

std::optional<std::string_view> commandText(std::uint32_t code) {
    const Command* command = commandWithCode(code);
    return command == nullptr ? std::nullopt : std::optional(command->text);
}

std::size_t payloadSizeForCommand(std::uint32_t code, std::size_t givenSize) {
    const Command* command = commandWithCode(code);
    switch (command == nullptr ? Payload::none : command->payload) {
    case Payload::none:
        return 0;
    case Payload::four:
        return 4;
    case Payload::eight:
    case Payload::eightExactly:
        return 8;
    case Payload::asGiven:
        return givenSize;
    }
    return 0;
}

std::string payloadSizeField(std::size_t size) {
    // Blanks for a size that does not fit: cut digits would announce a shorter payload than the one that follows.
    if (size == 0 || size > kLargestSize) return std::string(kSizeDigits, ' ');
    const std::string digits = std::to_string(size);
    return std::string(kSizeDigits - digits.size(), '0') + digits;
}

Data commandFrame(std::uint32_t code, const Data* payload) {
    const std::size_t size = payloadSizeForCommand(code, payload == nullptr ? 0 : payload->size());
    Data frame(kFrameHeaderSize + size, ' ');
    frame[0] = 0x1B;
    frame[1] = 'P';
    const Command* command = commandWithCode(code);
    if (command != nullptr) std::ranges::copy(command->text, frame.begin() + kTextOffset);
    if (size == 0) return frame;

    std::ranges::copy(payloadSizeField(size), frame.begin() + kSizeOffset);
    if (payload == nullptr) return frame;
    // These commands take eight bytes or none: a payload of another length is not sent in part.
    if (command->payload == Payload::eightExactly && payload->size() != size) return frame;
    // A payload that is too short leaves blanks, which the frame is filled with.
    std::copy_n(payload->begin(), std::min(size, payload->size()), frame.begin() + kFrameHeaderSize);
    return frame;
}

std::vector<int> commandFrameErrors(std::uint32_t code, std::size_t givenSize) {
    std::vector<int> errors;
    if (commandWithCode(code) == nullptr) errors.push_back(kCommandTextDoesNotFit);
    if (payloadSizeForCommand(code, givenSize) > kLargestSize) errors.push_back(kPayloadSizeDoesNotFit);
    return errors;
}

} // namespace zul
