// What a virtual printer answers on its control pipe, as bytes: descriptors and the IEEE 1284 device ID. Pure
// functions; any thread.
#pragma once

#include "platform/foundation/Data.h"
#include "platform/usb/DescribedInterface.h"
#include "virtual_printer/VirtualPrinter.h"

#include <optional>
#include <string>

namespace zul {

constexpr std::uint8_t kVirtualManufacturerIndex = 1;
constexpr std::uint8_t kVirtualProductIndex = 2;
constexpr std::uint8_t kVirtualSerialIndex = 3;
constexpr std::uint16_t kVirtualReleaseNumber = 0x0100;

/// The descriptors of interface number (from 0) of the printer, as it is attached at the location. Each interface has a
/// bulk OUT pipe (pipe 1) and a bulk IN pipe (pipe 2) with packets of 512 bytes.
DescriptorValues descriptorValues(const VirtualPrinter& printer, std::uint32_t locationID, std::uint8_t number);
/// The bytes of the answer, not cut to the request's wLength; nullopt for a request that the printer refuses.
std::optional<Data> answerControlRequest(const VirtualPrinter& printer, const IOUSBDevRequestTO& request);
/// The printer class's soft reset, to the recipient "interface" or "other".
bool isSoftReset(const IOUSBDevRequestTO& request);
/// The request as the journal shows it, for example "GET_DEVICE_ID".
std::string controlRequestName(const IOUSBDevRequestTO& request);
/// The device ID with its length in front: two bytes, big-endian, which are included in it.
Data deviceIDReply(const VirtualPrinter& printer);

} // namespace zul
