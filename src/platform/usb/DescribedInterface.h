// Implements the descriptor queries for every bus. A bus reads or builds the descriptors once, at attachment; its
// services and handles return the values from here.
#pragma once

#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace zul {

/// The descriptors of a device and of one of its interfaces.
struct DescriptorValues {
    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    std::uint16_t releaseNumber = 0;
    std::uint32_t locationID = 0;
    std::uint8_t configurationValue = 0;
    std::uint8_t interfaceNumber = 0;
    std::uint8_t alternateSetting = 0;
    std::uint8_t interfaceClass = 0;
    std::uint8_t interfaceSubClass = 0;
    std::vector<PipeProperties> pipes; // pipe number 1 is the first element
};

/// Implements the descriptor queries of Base (USBService or IOUSBInterfaceInterface). Each returns kIOReturnSuccess, or
/// the code of present(). Any thread.
template <class Base> class DescribedInterface : public Base {
  public:
    /// Takes the descriptors, which do not change while the object exists.
    explicit DescribedInterface(DescriptorValues descriptors) : _descriptors(std::move(descriptors)) {}

    IOReturn GetInterfaceClass(std::uint8_t& interfaceClass) override {
        return answer(interfaceClass, _descriptors.interfaceClass);
    }
    IOReturn GetInterfaceSubClass(std::uint8_t& interfaceSubClass) override {
        return answer(interfaceSubClass, _descriptors.interfaceSubClass);
    }
    IOReturn GetDeviceVendor(std::uint16_t& vendor) override { return answer(vendor, _descriptors.vendor); }
    IOReturn GetDeviceProduct(std::uint16_t& product) override { return answer(product, _descriptors.product); }
    IOReturn GetDeviceReleaseNumber(std::uint16_t& releaseNumber) override {
        return answer(releaseNumber, _descriptors.releaseNumber);
    }
    IOReturn GetLocationID(std::uint32_t& locationID) override { return answer(locationID, _descriptors.locationID); }
    IOReturn GetInterfaceNumber(std::uint8_t& number) override { return answer(number, _descriptors.interfaceNumber); }
    IOReturn GetAlternateSetting(std::uint8_t& alternate) override {
        return answer(alternate, _descriptors.alternateSetting);
    }
    IOReturn GetConfigurationValue(std::uint8_t& configuration) override {
        return answer(configuration, _descriptors.configurationValue);
    }
    IOReturn GetNumEndpoints(std::uint8_t& count) override {
        return answer(count, static_cast<std::uint8_t>(_descriptors.pipes.size()));
    }
    IOReturn GetPipeProperties(std::uint8_t pipe, PipeProperties& properties) override {
        if (pipe == 0 || pipe > _descriptors.pipes.size()) return kIOUSBUnknownPipeErr;
        return answer(properties, _descriptors.pipes[pipe - 1U]);
    }

  protected:
    /// kIOReturnSuccess while the descriptors can be read, otherwise the result of every query.
    virtual IOReturn present() const { return kIOReturnSuccess; }
    const DescriptorValues _descriptors;

  private:
    template <class Value> IOReturn answer(Value& out, const Value& value) const {
        const IOReturn code = present();
        if (code == kIOReturnSuccess) out = value;
        return code;
    }
};

} // namespace zul
