// Standard requests over an open interface, and cutting a value out of a text. Each request blocks its caller for at
// most its time-outs: printers call this on their command queue, and on main at an arrival.
#include "Classes/USBInterfaceHelpers.h"

#include "Classes/StatusCodeNames.h"
#include "holven_Base/HOLVEN_NSStringAdditions.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/SystemLog.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace zul {

namespace {

constexpr std::uint8_t kDeviceToHostStandardDevice = 0x80;
constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint16_t kDeviceDescriptor = 0x0100; // type in the high byte, index in the low one
constexpr std::uint16_t kStringDescriptor = 0x0300;
constexpr std::uint16_t kDeviceDescriptorLength = 18;
constexpr std::size_t kStringBufferLength = 256;

using StringBuffer = std::array<std::uint8_t, kStringBufferLength>;

struct Timeouts {
    std::uint32_t noData;     // ms
    std::uint32_t completion; // ms
};
constexpr Timeouts kDeviceDescriptorTimeouts{100, 100};
constexpr Timeouts kStringTimeouts{1, 0}; // on purpose not those of the device descriptor

IOUSBDevRequestTO descriptorRequest(std::uint16_t value, std::uint16_t index, void* buffer, std::uint16_t length,
                                    Timeouts timeouts) {
    IOUSBDevRequestTO request;
    request.bmRequestType = kDeviceToHostStandardDevice;
    request.bRequest = kGetDescriptor;
    request.wValue = value;
    request.wIndex = index;
    request.wLength = length;
    request.pData = buffer;
    request.noDataTimeout = timeouts.noData;
    request.completionTimeout = timeouts.completion;
    return request;
}

IOReturn readStringDescriptor(IOUSBInterfaceInterface& interfaceInterface, std::uint32_t index, std::uint16_t language,
                              StringBuffer& buffer, std::uint32_t& length) {
    const auto value = static_cast<std::uint16_t>(kStringDescriptor | (index & 0xFFFF));
    IOUSBDevRequestTO request =
        descriptorRequest(value, language, buffer.data(), static_cast<std::uint16_t>(buffer.size()), kStringTimeouts);
    const IOReturn code = interfaceInterface.ControlRequestTO(0, request);
    length = request.wLenDone;
    return code;
}

// The walk reads the pairs in the opposite byte order to the table's, on purpose: a device that lists its languages in
// the standard order answers in its first one.
std::uint16_t languageFrom(const StringBuffer& table) {
    unsigned language = 0;
    for (std::size_t offset = 2; offset < table[0]; offset += 2) {
        if (table[offset + 1] == 0x09) language = static_cast<unsigned>(table[offset] << 8 | 0x09);
        if (table[offset] == 0x04) break;
    }
    if (language == 0) language = static_cast<unsigned>(table[3] << 8 | table[2]);
    return static_cast<std::uint16_t>(language);
}

// Turns a string descriptor into its text; nullopt if no character remains.
std::optional<std::string> textOfDescriptor(StringBuffer& descriptor, IOReturn& code) {
    std::size_t length = descriptor[0];
    descriptor[0] = 0xFF; // a byte-order mark in place of the header
    descriptor[1] = 0xFE;
    if (length > descriptor.size()) {
        length = descriptor.size();
        code = kIOReturnOverrun;
    }
    length -= length % 2;
    // Only the low byte is looked at: characters such as U+0100 at the end go, too.
    while (length > 0 && descriptor[length - 2] == 0) length -= 2;
    if (length < 4) return std::nullopt;
    return stringFromUTF16WithByteOrderMark(std::span(descriptor).first(length));
}

void readSerialNumber(IOUSBInterfaceInterface& interfaceInterface, std::uint8_t index, IOReturn& code,
                      std::optional<std::string>& string) {
    code = usbInterfaceGetDescriptorStringCopy(&interfaceInterface, index, &string);
    if (code == kIOReturnSuccess) return;
    // The cut text is kept: it still identifies the device.
    if (code == kIOReturnOverrun) {
        standardErrorLog(formatted("ERROR: usbInterfaceGetDescriptorStringCopy returned a truncated string[%d]\n"
                                   "This USB device may be out of spec -- proceed with caution.\n",
                                   asSigned(code)));
        return;
    }
    standardErrorLog(formatted("ERROR: usbInterfaceGetDescriptorStringCopy returned [%d]\n", asSigned(code)));
    string.reset();
}

IOReturn syntheticSerialNumber(IOUSBInterfaceInterface& interfaceInterface, std::optional<std::string>& string) {
    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    std::uint32_t location = 0;
    std::uint16_t release = 0;
    // The four are read one after the other until one fails; called names that one in the log.
    const char* called = "GetDeviceVendor";
    IOReturn code = interfaceInterface.GetDeviceVendor(vendor);
    if (code == kIOReturnSuccess) {
        called = "GetDeviceProduct";
        code = interfaceInterface.GetDeviceProduct(product);
    }
    if (code == kIOReturnSuccess) {
        called = "GetLocationID";
        code = interfaceInterface.GetLocationID(location);
    }
    if (code == kIOReturnSuccess) {
        called = "GetDeviceReleaseNumber";
        code = interfaceInterface.GetDeviceReleaseNumber(release);
    }
    if (code == kIOReturnSuccess) {
        string = formatted("%.4X%.4X%.4X;*LOC:%.8x", vendor, product, release, location);
    } else {
        standardErrorLog(formatted("ERROR: calling %s returned %s\n", called, strForIOReturn(code)));
    }
    return code;
}

} // namespace

IOReturn usbInterfaceGetDeviceDescriptor(IOUSBInterfaceInterface* interfaceInterface, void* buffer,
                                         std::uint16_t length) {
    if (interfaceInterface == nullptr || buffer == nullptr || length == 0) {
        logText("Passed a NULL pointer or zero length into usbInterfaceGetDeviceDescriptor.\n");
        return kIOReturnBadArgument;
    }
    IOUSBDevRequestTO request =
        descriptorRequest(kDeviceDescriptor, /*index=*/0, buffer, length, kDeviceDescriptorTimeouts);
    const IOReturn code = interfaceInterface->ControlRequestTO(0, request);
    return code == kIOReturnSuccess && request.wLenDone < length ? kIOReturnUnderrun : code;
}

IOReturn usbInterfaceGetiDeviceIndices(IOUSBInterfaceInterface* interfaceInterface, std::uint8_t* manufacturer,
                                       std::uint8_t* product, std::uint8_t* serialNumber) {
    std::array<std::uint8_t, kDeviceDescriptorLength> descriptor{};
    IOReturn code = kIOReturnBadArgument;
    if (interfaceInterface != nullptr) {
        code = usbInterfaceGetDeviceDescriptor(interfaceInterface, descriptor.data(), kDeviceDescriptorLength);
    }
    if (code != kIOReturnSuccess) descriptor.fill(0); // half a descriptor is none
    if (manufacturer != nullptr) *manufacturer = descriptor[14];
    if (product != nullptr) *product = descriptor[15];
    if (serialNumber != nullptr) *serialNumber = descriptor[16];
    return code;
}

IOReturn usbInterfaceGetDescriptorStringCopy(IOUSBInterfaceInterface* interfaceInterface, std::uint32_t index,
                                             std::optional<std::string>* string) {
    if (interfaceInterface == nullptr || string == nullptr || index == 0) {
        logText("Passed a NULL pointer or zero index into usbInterfaceGetDescriptorStringCopy.\n");
        return kIOReturnBadArgument;
    }
    string->reset();
    StringBuffer buffer{};
    std::uint32_t length = 0;
    std::uint16_t language = 0;
    IOReturn code = readStringDescriptor(*interfaceInterface, /*index=*/0, /*language=*/0, buffer, length);
    if (code == kIOReturnSuccess && length >= 4) language = languageFrom(buffer);
    buffer.fill(0); // nothing of the table may show in a string that is shorter than it says
    code = readStringDescriptor(*interfaceInterface, index, language, buffer, length);
    if (code == kIOReturnSuccess && length >= 2) *string = textOfDescriptor(buffer, code);
    return code;
}

IOReturn usbInterfaceCreateSerialNumberString(IOUSBInterfaceInterface* interfaceInterface,
                                              std::optional<std::string>* string) {
    if (string != nullptr) string->reset();
    if (interfaceInterface == nullptr || string == nullptr) return kIOReturnBadArgument;
    std::uint8_t index = 0;
    IOReturn code =
        usbInterfaceGetiDeviceIndices(interfaceInterface, /*manufacturer=*/nullptr, /*product=*/nullptr, &index);
    if (code != kIOReturnSuccess) {
        logText("usbInterfaceGetiDeviceIndices returned %s [%.8x]\n", strForIOReturn(code), asHex(code));
    } else if (index > 0) {
        readSerialNumber(*interfaceInterface, index, code, *string);
    }
    if (!*string) code = syntheticSerialNumber(*interfaceInterface, *string);
    return code;
}

IOReturn usbInterfaceResetUSBDevice(IOUSBInterfaceInterface* interfaceInterface) {
    if (interfaceInterface == nullptr) return kIOReturnBadArgument;
    logText("attempting to reset USB device with interface [%p]\n", static_cast<const void*>(interfaceInterface));
    std::shared_ptr<IOUSBDeviceInterface> device;
    IOReturn code = interfaceInterface->GetDevice(device);
    if (code != kIOReturnSuccess) {
        standardErrorLog(formatted("ERROR: IOCreatePlugInInterfaceForService() returned [%d]\n", asSigned(code)));
        return code;
    }
    if (!device) return code;
    logText("ReEnumerating USB device [%p]\n", static_cast<const void*>(device.get()));
    code = device->USBDeviceOpen();
    if (code != kIOReturnSuccess) return code;
    code = device->USBDeviceReEnumerate(/*options=*/0);
    if (code != kIOReturnSuccess) logText("Failed to reenumerate the device: [%s]\n", strForIOReturn(code));
    return code; // not closed: the device goes away
}

std::optional<std::string> TBCFStringCreateSubstringFromPrefixToTerminatorWithOptions(
    const std::optional<std::string>& string, const std::optional<std::string>& prefix,
    const std::optional<std::string>& terminator, CompareOptions options, Marks marks) {
    if (!string) return std::nullopt;
    TextRange rest{0, string->size()};
    TextRange result = rest;
    if (prefix) {
        const auto found = rangeOfString(*string, *prefix, options, rest);
        if (!found) return std::nullopt;
        rest = {found->end(), string->size() - found->end()};
        result.location = marks == Marks::included ? found->location : found->end();
        result.length = string->size() - result.location;
    }
    if (terminator) {
        const auto found = rangeOfString(*string, *terminator, options, rest);
        if (!found) return std::nullopt;
        result.length = (marks == Marks::included ? found->end() : found->location) - result.location;
    }
    return string->substr(result.location, result.length);
}

std::optional<std::string>
TBCFStringCreateSubstringFromPrefixToTerminator(const std::optional<std::string>& string,
                                                const std::optional<std::string>& prefix,
                                                const std::optional<std::string>& terminator) {
    return TBCFStringCreateSubstringFromPrefixToTerminatorWithOptions(string, prefix, terminator,
                                                                      CompareOptions::caseInsensitive, Marks::excluded);
}

} // namespace zul
