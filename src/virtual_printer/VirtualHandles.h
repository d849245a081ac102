// The engine's handles to an embedded printer: its service, used on the main queue, and the handles of interface and
// device, used on the printer's command queue.
#pragma once

#include "platform/usb/DescribedInterface.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "platform/usb/PrinterReservations.h"
#include "platform/usb/ServiceRegistry.h"
#include "virtual_printer/VirtualPort.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace zul {

class VirtualService final : public DescribedInterface<USBService> {
  public:
    /// Stays usable after the attachment has ended; its handles then answer kIOReturnNoDevice.
    VirtualService(std::shared_ptr<VirtualPort> port, std::shared_ptr<VirtualAttachment> attachment,
                   DescriptorValues descriptors)
        : DescribedInterface(std::move(descriptors)), _port(std::move(port)), _attachment(std::move(attachment)) {}

    IOReturn createInterfaceInterface(std::shared_ptr<IOUSBInterfaceInterface>& interfaceInterface) override;
    std::string locationText() const override { return _port->locationText(); }
    std::string nodePath() const override { return {}; }
    bool isVirtual() const override { return true; }

  private:
    const std::shared_ptr<VirtualPort> _port;
    const std::shared_ptr<VirtualAttachment> _attachment;
};

/// The calls are documented in IOUSBInterfaceInterface. Time-outs are ms on the injected clock; noDataTimeout is
/// ignored.
class VirtualInterface final : public DescribedInterface<IOUSBInterfaceInterface> {
  public:
    /// Claims nothing yet.
    VirtualInterface(std::shared_ptr<VirtualPort> port, std::shared_ptr<VirtualAttachment> attachment,
                     DescriptorValues descriptors)
        : DescribedInterface(std::move(descriptors)), _port(std::move(port)), _attachment(std::move(attachment)) {}
    /// Ends the watch and releases the claim.
    ~VirtualInterface() override;
    IOReturn USBInterfaceOpenSeize() override;
    IOReturn USBInterfaceClose() override;
    /// A process named "another program" while another program claims the printer; otherwise kind unknown.
    InterfaceHolder holder() override;
    IOReturn ReadPipeTO(std::uint8_t pipe, void* buffer, std::uint32_t& size, std::uint32_t noDataTimeout,
                        std::uint32_t completionTimeout) override;
    IOReturn WritePipeTO(std::uint8_t pipe, const void* buffer, std::uint32_t size, std::uint32_t noDataTimeout,
                         std::uint32_t completionTimeout) override;
    IOReturn ControlRequestTO(std::uint8_t pipe, IOUSBDevRequestTO& request) override;
    IOReturn resynchronize(std::uint8_t pipe) override;
    IOReturn GetDevice(std::shared_ptr<IOUSBDeviceInterface>& device) override;
    void setWriteProgress(WriteProgress progress) override { _progress = std::move(progress); }
    void watchHolder(std::function<void()> mayBeFree) override;
    IOReturn tryClaim() override;

  private:
    bool isClaimed() const { return _isClaimed && !_attachment->isGone; }
    std::uint8_t number() const { return _descriptors.interfaceNumber; }

    const std::shared_ptr<VirtualPort> _port;
    const std::shared_ptr<VirtualAttachment> _attachment;
    bool _isClaimed = false;
    WriteProgress _progress;
};

class VirtualDeviceHandle final : public IOUSBDeviceInterface {
  public:
    /// Needs no claim of an interface.
    VirtualDeviceHandle(std::shared_ptr<VirtualPort> port, std::shared_ptr<VirtualAttachment> attachment)
        : _port(std::move(port)), _attachment(std::move(attachment)) {}
    IOReturn USBDeviceOpen() override { return present(); }
    IOReturn USBDeviceClose() override { return present(); }
    IOReturn ResetDevice() override;
    IOReturn USBDeviceReEnumerate(std::uint32_t options) override;
    IOReturn USBGetManufacturerStringIndex(std::uint8_t& index) override;
    IOReturn USBGetProductStringIndex(std::uint8_t& index) override;
    IOReturn USBGetSerialNumberStringIndex(std::uint8_t& index) override;

  private:
    IOReturn present() const { return _attachment->isGone ? kIOReturnNoDevice : kIOReturnSuccess; }
    const std::shared_ptr<VirtualPort> _port;
    const std::shared_ptr<VirtualAttachment> _attachment;
};

} // namespace zul
