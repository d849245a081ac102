// Builds a virtual printer's replies on the control pipe: descriptors and the IEEE 1284 device ID. Pure functions; any
// thread.
#pragma once

#include "platform/foundation/Data.h"
#include "platform/usb/DescribedInterface.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "virtual_printer/VirtualPrinter.h"

#include <cstdint>
#include <optional>
#include <string>

namespace zul {

constexpr std::uint8_t kVirtualManufacturerIndex = 1;
constexpr std::uint8_t kVirtualProductIndex = 2;
constexpr std::uint8_t kVirtualSerialIndex = 3;
constexpr std::uint16_t kVirtualReleaseNumber = 0x0100;

/// The descriptors of the interface with this number (from 0), for a printer attached at the location. Each interface
/// has a bulk OUT pipe (pipe 1) and a bulk IN pipe (pipe 2) with packets of 512 bytes.
DescriptorValues descriptorValues(const VirtualPrinter& printer, std::uint32_t locationID, std::uint8_t number);
/// The bytes of the reply, not cut to the request's wLength; nullopt for a request that the printer stalls.
std::optional<Data> answerControlRequest(const VirtualPrinter& printer, const IOUSBDevRequestTO& request);
/// True for the printer class's soft reset with recipient "interface" or "other".
bool isSoftReset(const IOUSBDevRequestTO& request);
/// The request's name in the journal, for example "GET_DEVICE_ID".
std::string controlRequestName(const IOUSBDevRequestTO& request);
/// The device ID after its length: two bytes, big-endian, that include themselves.
Data deviceIDReply(const VirtualPrinter& printer);

} // namespace zul
