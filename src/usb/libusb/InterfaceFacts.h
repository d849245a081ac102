// What the descriptors say about a printer interface, read once at its arrival without opening the device node, and the
// answers to questions about it.
#pragma once

#include "platform/usb/IOUSBInterfaceInterface.h"

#include <optional>
#include <string>
#include <vector>

struct libusb_device;

namespace zul {

struct DeviceFacts {
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
    /// For example "/dev/bus/usb/001/004".
    std::string nodePath() const;
};

struct InterfaceFacts {
    std::uint8_t number = 0;
    std::uint8_t alternate = 0;
    std::uint8_t interfaceClass = 0;
    std::uint8_t interfaceSubClass = 0;
    std::vector<PipeProperties> pipes; // pipe 1 is the first
};

/// Reads both; one entry per printer-class interface number. Nothing while the device has no configuration: the system
/// tells of a device a moment before it configures it. Any thread.
std::optional<std::vector<InterfaceFacts>> readPrinterInterfaces(libusb_device* device, DeviceFacts& deviceFacts);

/// The descriptor questions of Base, answered from facts; present() may refuse them all.
template <class Base> class DescribedInterface : public Base {
  public:
    DescribedInterface(DeviceFacts device, InterfaceFacts facts)
        : _deviceFacts(std::move(device)), _facts(std::move(facts)) {}

    IOReturn GetInterfaceClass(std::uint8_t& interfaceClass) override {
        return answer(interfaceClass, _facts.interfaceClass);
    }
    IOReturn GetInterfaceSubClass(std::uint8_t& interfaceSubClass) override {
        return answer(interfaceSubClass, _facts.interfaceSubClass);
    }
    IOReturn GetDeviceVendor(std::uint16_t& vendor) override { return answer(vendor, _deviceFacts.vendor); }
    IOReturn GetDeviceProduct(std::uint16_t& product) override { return answer(product, _deviceFacts.product); }
    IOReturn GetDeviceReleaseNumber(std::uint16_t& releaseNumber) override {
        return answer(releaseNumber, _deviceFacts.releaseNumber);
    }
    IOReturn GetLocationID(std::uint32_t& locationID) override { return answer(locationID, _deviceFacts.locationID()); }
    IOReturn GetInterfaceNumber(std::uint8_t& number) override { return answer(number, _facts.number); }
    IOReturn GetAlternateSetting(std::uint8_t& alternate) override { return answer(alternate, _facts.alternate); }
    IOReturn GetConfigurationValue(std::uint8_t& configuration) override {
        return answer(configuration, _deviceFacts.configurationValue);
    }
    IOReturn GetNumEndpoints(std::uint8_t& count) override {
        return answer(count, static_cast<std::uint8_t>(_facts.pipes.size()));
    }
    IOReturn GetPipeProperties(std::uint8_t pipe, PipeProperties& properties) override {
        if (pipe == 0 || pipe > _facts.pipes.size()) return kIOUSBUnknownPipeErr;
        return answer(properties, _facts.pipes[pipe - 1U]);
    }

  protected:
    /// Success while questions are answered.
    virtual IOReturn present() const { return kIOReturnSuccess; }
    const DeviceFacts _deviceFacts;
    const InterfaceFacts _facts;

  private:
    template <class Value> IOReturn answer(Value& out, const Value& value) const {
        const IOReturn code = present();
        if (code == kIOReturnSuccess) out = value;
        return code;
    }
};

} // namespace zul
