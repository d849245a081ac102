// The handle of the whole device: resets, re-enumeration, string indices.
#pragma once

#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "usb/libusb/Attachment.h"
#include "usb/libusb/DeviceConnection.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace zul {

class LibusbDevice final : public IOUSBDeviceInterface {
  public:
    /// Keeps the node open through the connection.
    LibusbDevice(std::shared_ptr<Attachment> attachment, std::shared_ptr<DeviceConnection> connection)
        : _attachment(std::move(attachment)), _connection(std::move(connection)) {}

    /// The node is open as long as the handle lives: both only answer whether the device is still there.
    IOReturn USBDeviceOpen() override { return present(); }
    IOReturn USBDeviceClose() override { return present(); }
    /// Resets in place: address and claim are kept, no events follow.
    IOReturn ResetDevice() override;
    /// Resets the device and ends this attachment; the core then announces the device as a new one. options: not used.
    IOReturn USBDeviceReEnumerate(std::uint32_t options) override;
    IOReturn USBGetManufacturerStringIndex(std::uint8_t& index) override;
    IOReturn USBGetProductStringIndex(std::uint8_t& index) override;
    IOReturn USBGetSerialNumberStringIndex(std::uint8_t& index) override;

  private:
    IOReturn present() const { return _attachment->gone ? kIOReturnNoDevice : kIOReturnSuccess; }
    IOReturn answer(std::uint8_t& index, std::uint8_t value) const;

    const std::shared_ptr<Attachment> _attachment;
    const std::shared_ptr<DeviceConnection> _connection;
};

} // namespace zul
