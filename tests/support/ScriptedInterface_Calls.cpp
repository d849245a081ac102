// Texts of calls in the journal, matchers of requests, and bytes in the format of a device.
// Called by tests and by ScriptedInterface; pure functions.
#include "support/ScriptedInterface.h"

#include <fmt/printf.h>

namespace zul {

namespace {
constexpr std::uint8_t kStandardIn = 0x80;
constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint8_t kClassInterfaceIn = 0xA1;
} // namespace

std::string JournalEntry::text() const {
    if (call == "WritePipeTO" || call == "ReadPipeTO") {
        return fmt::sprintf("%s pipe %u, %u bytes, %u/%u ms", call, pipe, size, noDataTimeout, completionTimeout);
    }
    if (call == "ControlRequestTO") {
        return fmt::sprintf("%s %.2x %.2x %.4x %.4x, %u bytes, %u/%u ms", call, request.bmRequestType, request.bRequest,
                            request.wValue, request.wIndex, size, noDataTimeout, completionTimeout);
    }
    if (call == "resynchronize") return fmt::sprintf("%s pipe %u", call, pipe);
    return call;
}

RequestMatcher getDescriptor(std::uint16_t value) {
    return [value](const IOUSBDevRequestTO& request) {
        return request.bmRequestType == kStandardIn && request.bRequest == kGetDescriptor && request.wValue == value;
    };
}

RequestMatcher getDescriptor(std::uint16_t value, std::uint16_t language) {
    return [matches = getDescriptor(value), language](const IOUSBDevRequestTO& request) {
        return matches(request) && request.wIndex == language;
    };
}

RequestMatcher getDeviceID() {
    return [](const IOUSBDevRequestTO& request) {
        return request.bmRequestType == kClassInterfaceIn && request.bRequest == 0;
    };
}

RequestMatcher anyRequest() {
    return [](const IOUSBDevRequestTO&) { return true; };
}

Data stringDescriptor(const std::u16string& text) {
    Data bytes{static_cast<std::uint8_t>(2 + 2 * text.size()), 3};
    for (const char16_t character : text) {
        bytes.push_back(static_cast<std::uint8_t>(character & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(character >> 8));
    }
    return bytes;
}

Data deviceIDReply(const std::string& text) {
    const std::size_t length = text.size() + 2;
    const std::string reply = {static_cast<char>(length >> 8), static_cast<char>(length & 0xFF)};
    return dataFromText(reply + text);
}

} // namespace zul
