// What the descriptors say about a printer interface, read once at its arrival without opening the device node.
#pragma once

#include "platform/usb/DescribedInterface.h"
#include "platform/usb/IOUSBInterfaceInterface.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct libusb_device;

namespace zul {

/// Of the whole device.
struct DeviceDescriptors {
    std::uint8_t busNumber = 0;
    std::uint8_t address = 0;
    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    std::uint16_t releaseNumber = 0;
    std::uint8_t manufacturerIndex = 0; // string indices, 0 = none
    std::uint8_t productIndex = 0;
    std::uint8_t serialNumberIndex = 0;
    std::uint8_t configurationValue = 0;
    std::vector<std::uint8_t> ports; // from the root hub outwards

    /// Bus number in the top byte, one nibble per port below; never from the address, which changes at a restart.
    std::uint32_t locationID() const;
    /// For example "1-2.4".
    std::string locationText() const;
    /// Vendor, product and location, in hexadecimal: the key under which a printer is remembered and reserved.
    std::string key() const;
    /// For example "/dev/bus/usb/001/004".
    std::string nodePath() const;
};

/// Of one printer interface, in the alternate setting that is used.
struct InterfaceDescriptors {
    std::uint8_t number = 0;
    std::uint8_t alternate = 0;
    std::uint8_t interfaceClass = 0;
    std::uint8_t interfaceSubClass = 0;
    std::vector<PipeProperties> pipes; // pipe 1 is the first
};

/// Reads both; one entry per printer-class interface number. nullopt while the device has no configuration: the system
/// reports a device a moment before it configures it. Any thread.
std::optional<std::vector<InterfaceDescriptors>> readPrinterInterfaces(libusb_device* device,
                                                                       DeviceDescriptors& deviceDescriptors);

/// The two together, as services and handles answer from them. Any thread.
DescriptorValues descriptorValues(const DeviceDescriptors& device, const InterfaceDescriptors& interface);

} // namespace zul
