// Reading string descriptors and choosing their language. Called by the printer that owns this object, on its command
// queue; at an arrival on main.
#include "Classes/StringDescriptors.h"

#include "Classes/CommandChannel.h"
#include "holven_Base/HOLVEN_NSStringAdditions.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Format.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace zul {

namespace {

constexpr std::uint32_t kNoDataTimeout = 500;         // ms
constexpr std::uint32_t kLanguageTableTimeout = 2000; // ms
constexpr std::uint32_t kStringTimeout = 1000;        // ms
constexpr std::size_t kBufferSize = 256;
constexpr std::uint8_t kStringDescriptorType = 3;
constexpr std::uint8_t kDeviceQualifierType = 6;

bool isEnglish(std::uint16_t language) {
    return (language & 0x3FF) == 9;
}

// A language seen later is preferred when it is the first English one, or an English with a smaller sub-language.
bool isPreferred(std::uint16_t candidate, std::uint16_t choice) {
    if (!isEnglish(candidate)) return false;
    return !isEnglish(choice) || (candidate >> 10) < (choice >> 10);
}

} // namespace

IOReturn StringDescriptors::read(std::uint16_t value, std::uint16_t index, std::uint32_t completionTimeout,
                                 Data& buffer) {
    if (!_channel.interface()) return kIOReturnNoDevice;
    buffer.assign(kBufferSize, 0);
    IOUSBDevRequestTO request;
    request.bmRequestType = 0x80; // device to host, standard, device
    request.bRequest = 6;         // GET_DESCRIPTOR
    request.wValue = value;
    request.wIndex = index;
    request.wLength = kBufferSize;
    request.pData = buffer.data();
    request.noDataTimeout = kNoDataTimeout;
    request.completionTimeout = completionTimeout;
    const IOReturn code = _channel.interface()->ControlRequestTO(0, request);
    _received = request.wLenDone;
    // A stall is an answer: the device has no such descriptor.
    if (code != kIOReturnSuccess && code != kIOUSBPipeStalled) _arrival.isUnresponsive = true;
    return code;
}

std::optional<std::set<std::uint16_t>> StringDescriptors::languages() {
    if (_languages) return _languages;
    if (_arrival.isUnderWay && _arrival.isTableUnreadable) return std::nullopt;
    Data table;
    _arrival.isTableUnreadable = true; // until it is read
    if (read(0x0300, 0, kLanguageTableTimeout, table) != kIOReturnSuccess) return std::nullopt;
    if (_received < 4) return std::nullopt; // the header and one language
    _arrival.isTableUnreadable = false;
    std::set<std::uint16_t> found;
    std::optional<std::uint16_t> choice;
    for (std::size_t at = 2; at + 1 < table.size() && at < table[0]; at += 2) {
        // First byte high: the printers are asked for their strings with the index in this order.
        const auto one = static_cast<std::uint16_t>(table[at] << 8 | table[at + 1]);
        found.insert(one);
        if (!choice || isPreferred(one, *choice)) choice = one;
    }
    _languages = std::move(found);
    _language = choice.value_or(0);
    return _languages;
}

std::uint16_t StringDescriptors::language() {
    // Also after a failure: a device that could not answer at its arrival may do so now.
    if (_language == 0) static_cast<void>(languages());
    return _language;
}

void StringDescriptors::setLanguage(std::uint16_t language) {
    const auto known = languages();
    if (known && known->contains(language)) _language = language;
}

std::optional<std::string> StringDescriptors::stringAtIndex(std::uint8_t index) {
    Data buffer;
    const auto value = static_cast<std::uint16_t>(0x0300 | index);
    const std::uint16_t chosen = language();
    if (_arrival.isUnderWay && _arrival.isUnresponsive) return std::nullopt;
    if (read(value, chosen, kStringTimeout, buffer) != kIOReturnSuccess) return std::nullopt;
    if (_received < 2) return std::nullopt;
    std::size_t length = buffer[0];
    const std::uint8_t type = buffer[1];
    if (type != kStringDescriptorType) {
        logText("The device returned a string descriptor with the incorrect descriptor type(returned %x (should be "
                "%x))\n",
                type, kStringDescriptorType);
        // Some devices answer with a device qualifier in front of the text.
        const std::size_t offset = 2 * (length + 1);
        if (type != kDeviceQualifierType || offset >= kBufferSize) return std::nullopt;
        return stringFromNulTerminatedUTF8(Data(buffer.begin() + static_cast<std::ptrdiff_t>(offset), buffer.end()));
    }
    buffer[0] = 0xFF; // a little-endian byte-order mark in place of the descriptor's header
    buffer[1] = 0xFE;
    // Some devices pad their strings with NULs or report an odd length.
    if (length % 2 != 0) --length;
    while (length >= 2 && buffer[length - 2] == 0) length -= 2;
    if (length < 4) return std::nullopt;
    buffer.resize(length);
    return stringFromUTF16WithByteOrderMark(buffer);
}

} // namespace zul
