// Plain functions over an open USB interface: standard descriptors, serial-number text, re-enumeration; and cutting a
// value out of a text such as a device ID. They hold no state; nothing is thrown, failures are return codes and log
// lines. A printer calls them on its command queue.
#pragma once

#include "holven_Base/HOLVEN_NSStringAdditions.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"

#include <cstdint>
#include <optional>
#include <string>

namespace zul {

/// Reads length bytes of the device descriptor. kIOReturnUnderrun when fewer came, kIOReturnBadArgument for a null or
/// 0.
IOReturn usbInterfaceGetDeviceDescriptor(IOUSBInterfaceInterface* interfaceInterface, void* buffer,
                                         std::uint16_t length);

/// String indices of the device; each out may be null, and is 0 on failure. kIOReturnBadArgument for a null interface.
IOReturn usbInterfaceGetiDeviceIndices(IOUSBInterfaceInterface* interfaceInterface, std::uint8_t* manufacturer,
                                       std::uint8_t* product, std::uint8_t* serialNumber);

/// The string under a descriptor index (not 0) in the device's first language. nullopt, with success, for a string
/// without characters. kIOReturnOverrun for one that was cut, kIOReturnBadArgument for a null or index 0, otherwise the
/// code of the last request.
IOReturn usbInterfaceGetDescriptorStringCopy(IOUSBInterfaceInterface* interfaceInterface, std::uint32_t index,
                                             std::optional<std::string>* string);

/// The device's serial number; for a device without one, a text made of vendor, product, release and location.
/// kIOReturnBadArgument for a null; otherwise the code of the last request that was needed.
IOReturn usbInterfaceCreateSerialNumberString(IOUSBInterfaceInterface* interfaceInterface,
                                              std::optional<std::string>* string);

/// Makes the device leave and return: a re-enumeration, whatever the name says. kIOReturnBadArgument for a null.
IOReturn usbInterfaceResetUSBDevice(IOUSBInterfaceInterface* interfaceInterface);

/// Whether a cut-out text keeps the marks around it.
enum class Marks { excluded, included };

/// The text from the prefix (or the start) to the terminator after it (or the end). nullopt if a mark is missing in
/// the text, or for a null text.
std::optional<std::string> TBCFStringCreateSubstringFromPrefixToTerminatorWithOptions(
    const std::optional<std::string>& string, const std::optional<std::string>& prefix,
    const std::optional<std::string>& terminator, CompareOptions options, Marks marks);

/// The same, ignoring case, without the marks.
std::optional<std::string>
TBCFStringCreateSubstringFromPrefixToTerminator(const std::optional<std::string>& string,
                                                const std::optional<std::string>& prefix,
                                                const std::optional<std::string>& terminator);

/// The two bytes exchanged.
constexpr std::uint16_t OSSwapInt16(std::uint16_t value) {
    return static_cast<std::uint16_t>(value << 8 | value >> 8);
}

} // namespace zul
