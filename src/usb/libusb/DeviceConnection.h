// A device on the bus, and the one open node through which all its interfaces and both kinds of handles talk to it.
// One node per device and process: a second one would find the claims of the first and report them as somebody else's.
#pragma once

#include "usb/libusb/InterfaceFacts.h"
#include "usb/libusb/LibusbContext.h"

#include <atomic>
#include <map>
#include <mutex>
#include <set>

struct libusb_device_handle;

namespace zul {

class DeviceConnection;

/// One device from its arrival to its departure. A reset in place keeps it.
class AttachedDevice : public std::enable_shared_from_this<AttachedDevice> {
  public:
    AttachedDevice(std::shared_ptr<LibusbContext> context, libusb_device* device);

    /// Reads the descriptors; false while the device is not configured. Main queue, until it has once been true.
    bool readDescriptors();
    const DeviceFacts& facts() const { return _facts; }
    /// The printer interfaces; none before the descriptors were read.
    const std::vector<InterfaceFacts>& interfaces() const { return _interfaces; }
    /// The open node; opened when nobody has it open yet. kIOReturnNotPrivileged when it may not be. Any thread.
    IOReturn connect(std::shared_ptr<DeviceConnection>& connection);
    /// The open node if there is one. Any thread.
    std::shared_ptr<DeviceConnection> connection();

    std::atomic<bool> left{false};            // the bus has seen it go
    std::atomic<bool> restartExpected{false}; // it is about to come back: the kernel's driver stays off

  private:
    friend class DeviceConnection;
    const std::shared_ptr<LibusbContext> _context;
    const DeviceReference _device;
    DeviceFacts _facts;
    std::vector<InterfaceFacts> _interfaces;
    std::mutex _mutex;
    std::weak_ptr<DeviceConnection> _connection;
    std::set<std::uint8_t> _driverDetached; // interface numbers whose kernel driver we took off; under _mutex
};

/// The open node and the claims made through it. The owner of a claim is the address of the handle that asked for it.
/// Claims may be changed from the command queues of several interfaces.
class DeviceConnection {
  public:
    DeviceConnection(std::shared_ptr<AttachedDevice> device, libusb_device_handle* handle);
    /// Releases everything, gives the interfaces back to the kernel's driver unless the device has left or a restart
    /// is expected, and closes the node.
    ~DeviceConnection();
    DeviceConnection(const DeviceConnection&) = delete;
    DeviceConnection& operator=(const DeviceConnection&) = delete;

    libusb_device_handle* handle() const { return _handle; }
    const std::shared_ptr<AttachedDevice>& device() const { return _device; }

    /// Claims an interface, taking the kernel's own driver off. Success when it is claimed through this node already.
    IOReturn seize(std::uint8_t interface, const void* owner);
    /// kIOReturnError when owner does not hold the interface.
    IOReturn release(std::uint8_t interface, const void* owner);
    /// Success when a seize would succeed now, as far as this can be told without one: the kernel's driver does not
    /// count as a holder and is left alone.
    IOReturn tryClaim(std::uint8_t interface);
    bool isClaimed(std::uint8_t interface, const void* owner);
    std::map<std::uint8_t, const void*> releaseAll();
    /// False when the kernel has taken the device off the bus, which it may know before the event is delivered. Asks
    /// the kernel only, not the device.
    bool isOnBus(std::uint8_t interface);

    /// Marks a transfer for as long as it lives.
    class Transfer {
      public:
        explicit Transfer(DeviceConnection& connection) : _count(connection._transfers) { ++_count; }
        ~Transfer() { --_count; }
        Transfer(const Transfer&) = delete;
        Transfer& operator=(const Transfer&) = delete;

      private:
        std::atomic<int>& _count;
    };

    /// Releases the claims and lets the kernel's driver have the interfaces back; does nothing while a transfer is
    /// under way, after the device has left or while a restart is expected. Waits for the driver's own look at the
    /// device, some milliseconds on a live one.
    void giveBack();

  private:
    IOReturn takeDriverOff(std::uint8_t interface);
    void releaseAllLocked();
    void giveBackLocked();

    const std::shared_ptr<AttachedDevice> _device;
    libusb_device_handle* const _handle;
    std::mutex _mutex;
    std::map<std::uint8_t, const void*> _owners; // claimed interfaces
    std::atomic<int> _transfers{0};
};

} // namespace zul
