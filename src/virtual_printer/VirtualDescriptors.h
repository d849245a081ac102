// What a virtual printer answers on its control pipe, as bytes: descriptors and the IEEE 1284 device ID. Pure
// functions; any thread.
#pragma once

#include "platform/foundation/Data.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "virtual_printer/VirtualPrinter.h"

#include <optional>
#include <string>

namespace zul {

constexpr std::uint8_t kVirtualManufacturerIndex = 1;
constexpr std::uint8_t kVirtualProductIndex = 2;
constexpr std::uint8_t kVirtualSerialIndex = 3;
constexpr std::uint16_t kVirtualReleaseNumber = 0x0100;

/// Nothing for a request that the printer refuses.
std::optional<Data> answerControlRequest(const VirtualPrinter& printer, const IOUSBDevRequestTO& request);
bool isSoftReset(const IOUSBDevRequestTO& request);
/// For the journal.
std::string controlRequestName(const IOUSBDevRequestTO& request);
/// The device ID with its length in front, which counts itself, big-endian.
Data deviceIDReply(const VirtualPrinter& printer);

} // namespace zul
