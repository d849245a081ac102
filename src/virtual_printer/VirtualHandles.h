// What the engine holds of an embedded printer: its service and the handles of interface and device.
#pragma once

#include "virtual_printer/VirtualPort.h"

#include <memory>
#include <mutex>

namespace zul {

/// The descriptors of an embedded printer, for its service and for its handle. Any thread.
template <class Base> class VirtualDescription : public Base {
  public:
    VirtualDescription(std::shared_ptr<VirtualPort> port, std::shared_ptr<VirtualStay> stay, std::uint8_t number);

    IOReturn GetInterfaceClass(std::uint8_t& interfaceClass) override;
    IOReturn GetInterfaceSubClass(std::uint8_t& interfaceSubClass) override;
    IOReturn GetDeviceVendor(std::uint16_t& vendor) override;
    IOReturn GetDeviceProduct(std::uint16_t& product) override;
    IOReturn GetDeviceReleaseNumber(std::uint16_t& releaseNumber) override;
    IOReturn GetLocationID(std::uint32_t& locationID) override;
    IOReturn GetInterfaceNumber(std::uint8_t& number) override;
    IOReturn GetAlternateSetting(std::uint8_t& alternate) override;
    IOReturn GetConfigurationValue(std::uint8_t& configuration) override;
    IOReturn GetNumEndpoints(std::uint8_t& count) override;
    IOReturn GetPipeProperties(std::uint8_t pipe, PipeProperties& properties) override;

  protected:
    const std::shared_ptr<VirtualPort> _port;
    const std::shared_ptr<VirtualStay> _stay;
    const std::uint8_t _number;
};

class VirtualService final : public VirtualDescription<USBService> {
  public:
    using VirtualDescription::VirtualDescription;
    IOReturn createInterfaceInterface(std::shared_ptr<IOUSBInterfaceInterface>& interfaceInterface) override;
    std::string locationText() const override { return _port->locationText(); }
    std::string nodePath() const override { return {}; }
    bool isVirtual() const override { return true; }
};

class VirtualInterface final : public VirtualDescription<IOUSBInterfaceInterface> {
  public:
    using VirtualDescription::VirtualDescription;
    ~VirtualInterface() override;
    IOReturn USBInterfaceOpenSeize() override;
    IOReturn USBInterfaceClose() override;
    /// Kind unknown: the other holder of an embedded printer is not a process.
    InterfaceHolder holder() override { return {}; }
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
    bool isClaimed() const { return _isClaimed && !_stay->isGone; }
    bool _isClaimed = false;
    WriteProgress _progress;
};

class VirtualDeviceHandle final : public IOUSBDeviceInterface {
  public:
    VirtualDeviceHandle(std::shared_ptr<VirtualPort> port, std::shared_ptr<VirtualStay> stay)
        : _port(std::move(port)), _stay(std::move(stay)) {}
    IOReturn USBDeviceOpen() override { return present(); }
    IOReturn USBDeviceClose() override { return present(); }
    IOReturn ResetDevice() override;
    IOReturn USBDeviceReEnumerate(std::uint32_t options) override;
    IOReturn USBGetManufacturerStringIndex(std::uint8_t& index) override;
    IOReturn USBGetProductStringIndex(std::uint8_t& index) override;
    IOReturn USBGetSerialNumberStringIndex(std::uint8_t& index) override;

  private:
    IOReturn present() const { return _stay->isGone ? kIOReturnNoDevice : kIOReturnSuccess; }
    const std::shared_ptr<VirtualPort> _port;
    const std::shared_ptr<VirtualStay> _stay;
};

} // namespace zul
