// The one open node through which all interfaces of a device and both kinds of handles talk to it. One node per device
// and process: a second one would find the claims of the first and report them as those of another process.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/usb/IOReturn.h"
#include "usb/libusb/AttachedDevice.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

struct libusb_device_handle;

namespace zul {

/// The open node and the claims made through it. The owner of a claim is the address of the handle that asked for it,
/// or null for a claim without a user, which the bus keeps while an update is under way. Claims may be changed from the
/// command queues of several interfaces.
class DeviceConnection : public std::enable_shared_from_this<DeviceConnection> {
  public:
    /// Owns the handle and closes it. Only AttachedDevice::connect() makes connections.
    DeviceConnection(std::shared_ptr<AttachedDevice> device, libusb_device_handle* handle);
    /// Releases everything and closes the node. Interfaces that belong to the kernel's driver are attached to it by
    /// then, or here if the bus has stopped.
    ~DeviceConnection();
    DeviceConnection(const DeviceConnection&) = delete;
    DeviceConnection& operator=(const DeviceConnection&) = delete;

    /// Valid as long as this object; for transfers, which Transfer marks.
    libusb_device_handle* handle() const { return _handle; }
    const std::shared_ptr<AttachedDevice>& device() const { return _device; }

    // ---- claims ----

    /// Claims an interface, detaching the kernel's own driver unless a print job goes through it
    /// (kIOReturnExclusiveAccess) or that cannot be seen (kIOReturnNotPrivileged, after up to 2 s where the rights may
    /// still come). Success when it is claimed through this node already; it has a new owner then. A null owner keeps
    /// the node open until releaseUnused().
    IOReturn seize(std::uint8_t interface, const void* owner);
    /// Ends the owner's use. While an update is under way the claim is kept without a user. kIOReturnError when owner
    /// does not hold the interface.
    IOReturn release(std::uint8_t interface, const void* owner);
    /// Success when a seize would succeed now, as far as this can be seen without one: the kernel's driver is not a
    /// holder while no job is printed, and is not detached.
    IOReturn tryClaim(std::uint8_t interface);
    /// Success when no print job goes through the kernel's driver; the codes of seize otherwise.
    IOReturn printJobState(std::uint8_t interface);
    /// Whether owner holds the interface. Any thread.
    bool isClaimed(std::uint8_t interface, const void* owner);
    /// Releases every claim, before a reset; returns them so that they can be made again.
    std::map<std::uint8_t, const void*> releaseAll();
    /// The update is over: releases claims without a user, and schedules their return to the kernel's driver.
    void releaseUnused();

    /// False when the kernel has taken the device off the bus, which it may know before the event is delivered. Asks
    /// the kernel only, not the device.
    bool isOnBus(std::uint8_t interface);

    // ---- giving back ----

    /// Releases the claims and gives the interfaces back to the kernel's driver now; has no effect while a transfer is
    /// under way or after the device has left. Waits for the driver's own look at the device, some milliseconds on one
    /// that answers.
    void giveBackNow();
    /// No interface is given back any more. Any thread.
    void cancelReturns();

    /// Marks a transfer for as long as it lives.
    class Transfer {
      public:
        /// While a transfer is marked the interface does not go back to the kernel's driver.
        explicit Transfer(DeviceConnection& connection) : _count(connection._transfers) { ++_count; }
        ~Transfer() { --_count; }
        Transfer(const Transfer&) = delete;
        Transfer& operator=(const Transfer&) = delete;

      private:
        std::atomic<int>& _count;
    };

  private:
    struct Return {
        Clock::TimePoint at;
        Clock::TimerId timer = 0;
    };

    IOReturn seizeLocked(std::uint8_t interface, const void* owner);
    IOReturn seizeFromDriver(std::uint8_t interface, int& result);
    IOReturn detachDriver(std::uint8_t interface);
    bool isDriverBound(std::uint8_t interface) const;
    void releaseAllLocked();

    Clock& clock() const { return _device->services().clock(); }
    void setDriverless(std::uint8_t interface);
    bool takeDriverless(std::uint8_t interface);
    bool isDriverless(std::uint8_t interface);
    void scheduleReturn(std::uint8_t interface);
    void cancelReturn(std::uint8_t interface);
    void returnIfIdle(std::uint8_t interface);
    void attachDriver(std::uint8_t interface);

    const std::shared_ptr<AttachedDevice> _device;
    libusb_device_handle* const _handle;
    std::mutex _mutex;                           // before the device's
    std::map<std::uint8_t, const void*> _owners; // claimed interfaces
    std::map<std::uint8_t, Return> _returns;     // interfaces that wait for their return to the driver
    std::atomic<int> _transfers{0};
};

} // namespace zul
