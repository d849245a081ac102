// Builds descriptors, strings and the device ID of an embedded printer. Called by its handles and its port, with the
// port's lock held.
#include "virtual_printer/VirtualDescriptors.h"

#include "platform/foundation/Data.h"
#include "platform/foundation/Format.h"
#include "platform/usb/DescribedInterface.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "virtual_printer/VirtualPrinter.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace zul {

namespace {

constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint8_t kPrinterClass = 7;
constexpr std::uint8_t kPrinterSubClass = 1;
constexpr std::uint16_t kPacketSize = 512; // bytes, for high-speed bulk pipes

bool isGetDeviceID(const IOUSBDevRequestTO& request) {
    return request.bmRequestType == 0xA1 && request.bRequest == 0;
}

bool isGetDescriptor(const IOUSBDevRequestTO& request) {
    return request.bmRequestType == 0x80 && request.bRequest == kGetDescriptor;
}

std::uint8_t low(std::uint16_t value) {
    return static_cast<std::uint8_t>(value);
}
std::uint8_t high(std::uint16_t value) {
    return static_cast<std::uint8_t>(value >> 8);
}

Data deviceDescriptor(const VirtualPrinter& printer) {
    const std::uint16_t vendor = printer.vendorID();
    const std::uint16_t product = printer.productID();
    // clang-format off
    return {18, 1,                                                  // length, device
            0x00, 0x02,                                             // USB 2.0
            0, 0, 0, 64,                                            // class in the interface; control packets of 64
            low(vendor), high(vendor), low(product), high(product),
            low(kVirtualReleaseNumber), high(kVirtualReleaseNumber),
            kVirtualManufacturerIndex, kVirtualProductIndex,
            static_cast<std::uint8_t>(printer.serialText() ? kVirtualSerialIndex : 0),
            1};                                                     // one configuration
    // clang-format on
}

// The length must fit the descriptor's first byte: longer text is cut.
Data stringDescriptor(const std::string& text) {
    constexpr std::size_t kLongest = 126;
    const std::string ascii = text.substr(0, kLongest);
    Data descriptor = {static_cast<std::uint8_t>(2 + 2 * ascii.size()), 3};
    for (const char character : ascii) {
        descriptor.push_back(static_cast<std::uint8_t>(character));
        descriptor.push_back(0);
    }
    return descriptor;
}

// The requested language is ignored: there is only one set of texts.
std::optional<Data> stringAnswer(const VirtualPrinter& printer, std::uint8_t index) {
    switch (index) {
    case 0:
        return Data{4, 3, 0x09, 0x04}; // English (United States)
    case kVirtualManufacturerIndex:
        return stringDescriptor(printer.manufacturerText());
    case kVirtualProductIndex:
        return stringDescriptor(printer.productText());
    case kVirtualSerialIndex:
        if (const auto serial = printer.serialText()) return stringDescriptor(*serial);
        return std::nullopt;
    default:
        return std::nullopt;
    }
}

} // namespace

DescriptorValues descriptorValues(const VirtualPrinter& printer, std::uint32_t locationID, std::uint8_t number) {
    const auto pipe = [number](PipeDirection direction, unsigned endpoint) {
        return PipeProperties{.direction = direction,
                              // Endpoint numbers are those of the whole device: a second interface has the next two.
                              .number = static_cast<std::uint8_t>(endpoint + 2U * number),
                              .transferType = kUSBBulk,
                              .maxPacketSize = kPacketSize};
    };
    return {.vendor = printer.vendorID(),
            .product = printer.productID(),
            .releaseNumber = kVirtualReleaseNumber,
            .locationID = locationID,
            .configurationValue = 1,
            .interfaceNumber = number,
            .alternateSetting = 0,
            .interfaceClass = kPrinterClass,
            .interfaceSubClass = kPrinterSubClass,
            .pipes = {pipe(PipeDirection::out, 1), pipe(PipeDirection::in, 2)}};
}

Data deviceIDReply(const VirtualPrinter& printer) {
    const std::string text = printer.deviceID();
    const auto length = static_cast<std::uint16_t>(text.size() + 2);
    std::string reply = {static_cast<char>(high(length)), static_cast<char>(low(length))};
    return dataFromText(reply + text);
}

std::optional<Data> answerControlRequest(const VirtualPrinter& printer, const IOUSBDevRequestTO& request) {
    if (isGetDeviceID(request)) {
        return printer.answersDeviceID() ? std::optional(deviceIDReply(printer)) : std::nullopt;
    }
    if (!isGetDescriptor(request)) return std::nullopt;
    if (high(request.wValue) == 1) return deviceDescriptor(printer);
    if (high(request.wValue) == 3) return stringAnswer(printer, low(request.wValue));
    return std::nullopt;
}

bool isSoftReset(const IOUSBDevRequestTO& request) {
    return (request.bmRequestType == 0x21 || request.bmRequestType == 0x23) && request.bRequest == 2;
}

std::string controlRequestName(const IOUSBDevRequestTO& request) {
    if (isGetDeviceID(request)) return "GET_DEVICE_ID";
    if (isSoftReset(request)) return formatted("SOFT_RESET %.2x", request.bmRequestType);
    if (isGetDescriptor(request)) return formatted("GET_DESCRIPTOR %.4x", request.wValue);
    return formatted("%.2x %.2x", request.bmRequestType, request.bRequest);
}

} // namespace zul
