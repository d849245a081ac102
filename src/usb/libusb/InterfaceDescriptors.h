// What the descriptors say about a printer interface, read once at its arrival without opening the device node, and the
// answers to questions about it.
#pragma once

#include "platform/usb/IOUSBInterfaceInterface.h"

#include <optional>
#include <string>
#include <vector>

struct libusb_device;

namespace zul {

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
    /// Vendor, product and location: what a printer is remembered and reserved by.
    std::string key() const;
    /// For example "/dev/bus/usb/001/004".
    std::string nodePath() const;
};

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

/// The descriptor questions of Base, answered from descriptors; present() may refuse them all.
template <class Base> class DescribedInterface : public Base {
  public:
    DescribedInterface(DeviceDescriptors device, InterfaceDescriptors descriptors)
        : _deviceDescriptors(std::move(device)), _descriptors(std::move(descriptors)) {}

    IOReturn GetInterfaceClass(std::uint8_t& interfaceClass) override {
        return answer(interfaceClass, _descriptors.interfaceClass);
    }
    IOReturn GetInterfaceSubClass(std::uint8_t& interfaceSubClass) override {
        return answer(interfaceSubClass, _descriptors.interfaceSubClass);
    }
    IOReturn GetDeviceVendor(std::uint16_t& vendor) override { return answer(vendor, _deviceDescriptors.vendor); }
    IOReturn GetDeviceProduct(std::uint16_t& product) override { return answer(product, _deviceDescriptors.product); }
    IOReturn GetDeviceReleaseNumber(std::uint16_t& releaseNumber) override {
        return answer(releaseNumber, _deviceDescriptors.releaseNumber);
    }
    IOReturn GetLocationID(std::uint32_t& locationID) override {
        return answer(locationID, _deviceDescriptors.locationID());
    }
    IOReturn GetInterfaceNumber(std::uint8_t& number) override { return answer(number, _descriptors.number); }
    IOReturn GetAlternateSetting(std::uint8_t& alternate) override { return answer(alternate, _descriptors.alternate); }
    IOReturn GetConfigurationValue(std::uint8_t& configuration) override {
        return answer(configuration, _deviceDescriptors.configurationValue);
    }
    IOReturn GetNumEndpoints(std::uint8_t& count) override {
        return answer(count, static_cast<std::uint8_t>(_descriptors.pipes.size()));
    }
    IOReturn GetPipeProperties(std::uint8_t pipe, PipeProperties& properties) override {
        if (pipe == 0 || pipe > _descriptors.pipes.size()) return kIOUSBUnknownPipeErr;
        return answer(properties, _descriptors.pipes[pipe - 1U]);
    }

  protected:
    /// Success while questions are answered.
    virtual IOReturn present() const { return kIOReturnSuccess; }
    const DeviceDescriptors _deviceDescriptors;
    const InterfaceDescriptors _descriptors;

  private:
    template <class Value> IOReturn answer(Value& out, const Value& value) const {
        const IOReturn code = present();
        if (code == kIOReturnSuccess) out = value;
        return code;
    }
};

} // namespace zul
