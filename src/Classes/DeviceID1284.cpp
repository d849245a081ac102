// Reading and decoding the IEEE 1284 device ID. The printer reads it on its command queue, or on main while it has
// none; decoding needs no printer and runs on any thread.
#include "Classes/DeviceID1284.h"

#include "Classes/StatusCodeNames.h"
#include "Classes/USBInterfaceHelpers.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/SystemLog.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <strings.h>

namespace zul {

namespace {

constexpr std::uint16_t kBufferSize = 65535; // the longest ID that its two bytes of length can announce
constexpr std::uint32_t kTimeout = 100;      // ms; at an arrival the main queue waits for it

std::optional<std::string> valueInDeviceID(const std::string& deviceID, const char* prefix) {
    return TBCFStringCreateSubstringFromPrefixToTerminator(deviceID, prefix, ";");
}

// The first two bytes are the length, big-endian, which includes them.
std::optional<std::string> textOfDeviceID(Data& buffer, std::uint32_t received) {
    const std::size_t length = static_cast<std::size_t>(buffer[0]) << 8 | buffer[1];
    logText("Found a %u character device ID ... \n", length);
    if (length == 0) return std::nullopt;
    // A device may announce more than it sends; only what it has sent is used.
    const std::size_t end = std::min({length, std::size_t{kBufferSize} - 1, std::size_t{received}});
    if (end < 2) return std::nullopt;
    buffer[end] = 0;
    return stringFromNulTerminatedUTF8(Data(buffer.begin() + 2, buffer.begin() + static_cast<std::ptrdiff_t>(end) + 1));
}

} // namespace

std::optional<std::string> readDeviceID(IOUSBInterfaceInterface& interface) {
    std::uint8_t configuration = 0;
    std::uint8_t number = 0;
    std::uint8_t alternate = 0;
    if (const IOReturn code = interface.GetConfigurationValue(configuration); code != kIOReturnSuccess) {
        logText("%s returned %s [%x]\n", "GetConfigurationValue()", strForIOReturn(code), asHex(code));
        return std::nullopt;
    }
    if (const IOReturn code = interface.GetInterfaceNumber(number); code != kIOReturnSuccess) {
        standardErrorLog(
            formatted("ERROR: %s returned %s [%x]\n", "GetInterfaceNumber()", strForIOReturn(code), asHex(code)));
        return std::nullopt;
    }
    if (const IOReturn code = interface.GetAlternateSetting(alternate); code != kIOReturnSuccess) {
        standardErrorLog(
            formatted("ERROR: %s returned %s [%x]\n", "GetAlternateSetting()", strForIOReturn(code), asHex(code)));
        return std::nullopt;
    }

    Data buffer(kBufferSize, 0);
    IOUSBDevRequestTO request;
    request.bmRequestType = 0xA1; // device to host, class, interface
    request.bRequest = 0;         // GET_DEVICE_ID
    request.wValue = static_cast<std::uint16_t>(configuration - 1);
    request.wIndex = static_cast<std::uint16_t>(number << 8 | alternate);
    request.wLength = kBufferSize;
    request.pData = buffer.data();
    request.noDataTimeout = kTimeout;
    request.completionTimeout = kTimeout;
    if (interface.ControlRequestTO(0, request) != kIOReturnSuccess) return std::nullopt;
    return textOfDeviceID(buffer, request.wLenDone);
}

DecodedDeviceID decodedDeviceID(const std::string& deviceID) {
    // Devices use the long or the short form of a key.
    const auto firstOf = [&](const char* one, const char* other) {
        const auto value = valueInDeviceID(deviceID, one);
        return value ? value : valueInDeviceID(deviceID, other);
    };
    return {.manufacturer = normalizedVendor(firstOf("MFG:", "MANUFACTURER:").value_or("unknown")),
            .model = firstOf("MDL:", "MODEL:").value_or("unknown"),
            .serialNumber = valueInDeviceID(deviceID, "SERN:"),
            .description = firstOf("DESCRIPTION:", "DES:")};
}

std::optional<std::string> normalizedVendor(const std::optional<std::string>& vendor) {
    struct Normalized {
        const char* vendor;
        const char* name;
    };
    constexpr Normalized kNames[] = {
        {"Zul Imaging Company", "ZUL"}, {"Zul Imaging Company ", "ZUL"}, {"HEWLETT-PACKARD", "HP"}};
    // A name of two characters is short already ("HP").
    if (!vendor || vendor->size() <= 2) return vendor;
    for (const Normalized& entry : kNames) {
        if (strcasecmp(vendor->c_str(), entry.vendor) == 0) return entry.name;
    }
    return vendor;
}

} // namespace zul
