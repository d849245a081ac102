// The handle of one printer interface on the real bus.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/usb/DescribedInterface.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "platform/usb/PrinterReservations.h"
#include "usb/libusb/AttachedDevice.h"
#include "usb/libusb/Attachment.h"
#include "usb/libusb/DeviceConnection.h"
#include "usb/libusb/HolderWatch.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace zul {

/// The one time-out that the library has for a control request: the shorter of the request's two, because a device that
/// does not answer sends no data either; completionTimeout where noDataTimeout is 0; the bus's own where
/// completionTimeout is 0. Any thread.
std::chrono::milliseconds controlTimeout(const IOUSBDevRequestTO& request);

class LibusbInterface final : public DescribedInterface<IOUSBInterfaceInterface> {
  public:
    /// Keeps the node open through the connection; claims nothing yet.
    LibusbInterface(std::shared_ptr<Attachment> attachment, std::shared_ptr<DeviceConnection> connection,
                    DescriptorValues descriptors);
    /// Ends the watch and drops the claim. The node closes with the device's last handle, or when the kernel's driver
    /// has been given the printer back.
    ~LibusbInterface() override;

    IOReturn USBInterfaceOpenSeize() override;
    IOReturn USBInterfaceClose() override;
    InterfaceHolder holder() override;

    /// Asks the device for whole packets, because a packet longer than the request would be lost; what the caller did
    /// not ask for waits for the next read. size 0 returns at once.
    IOReturn ReadPipeTO(std::uint8_t pipe, void* buffer, std::uint32_t& size, std::uint32_t noDataTimeout,
                        std::uint32_t completionTimeout) override;
    /// In pieces under one deadline. size 0 makes no transfer. A time-out after the last byte has gone is success.
    IOReturn WritePipeTO(std::uint8_t pipe, const void* buffer, std::uint32_t size, std::uint32_t noDataTimeout,
                         std::uint32_t completionTimeout) override;
    /// IN requests are cut to what the kernel takes. The library has one time-out: the shorter of the two, because a
    /// device that does not answer sends no data either; completionTimeout where noDataTimeout is 0; the bus's own
    /// where completionTimeout is 0. A device ID that was read ahead is answered from memory.
    IOReturn ControlRequestTO(std::uint8_t pipe, IOUSBDevRequestTO& request) override;
    IOReturn resynchronize(std::uint8_t pipe) override;

    IOReturn GetDevice(std::shared_ptr<IOUSBDeviceInterface>& device) override;
    void setWriteProgress(WriteProgress progress) override { _writeProgress = std::move(progress); }
    void watchHolder(std::function<void()> mayBeFree) override;
    IOReturn tryClaim() override;

  protected:
    IOReturn present() const override { return _attachment->gone ? kIOReturnNoDevice : kIOReturnSuccess; }

  private:
    struct Surplus {
        std::vector<unsigned char> bytes;
        bool continues = false; // the transfer it came from did not end with a short packet: more belongs to it
    };

    IOReturn checkPipe(std::uint8_t pipe, PipeDirection direction) const;
    IOReturn result(int libusbResult) const;
    IOReturn transferResult(int libusbResult, unsigned char endpoint) const;
    std::uint32_t takeSurplus(Surplus& surplus, unsigned char* buffer, std::uint32_t size);
    IOReturn readPackets(const PipeProperties& pipe, Surplus& surplus, std::uint32_t wanted,
                         std::chrono::milliseconds timeout);
    AttachedDevice& device() const { return *_attachment->device; }
    Clock& clock() const { return device().services().clock(); }

    const std::shared_ptr<Attachment> _attachment;
    const std::shared_ptr<DeviceConnection> _connection;
    std::map<std::uint8_t, Surplus> _surplus; // by pipe
    WriteProgress _writeProgress;
    std::mutex _watchMutex; // begun on the command queue, ended on main as well
    std::shared_ptr<HolderWatch> _watch;
};

} // namespace zul
