// A device on the bus, from its arrival to its departure. A reset in place keeps it.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/usb/IOReturn.h"
#include "usb/libusb/BusServices.h"
#include "usb/libusb/InterfaceDescriptors.h"
#include "usb/libusb/LibusbContext.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace zul {

class DeviceConnection;

class AttachedDevice : public std::enable_shared_from_this<AttachedDevice> {
  public:
    /// Takes a reference of its own to the device; opens nothing. context: the session that device belongs to.
    AttachedDevice(std::shared_ptr<BusServices> services, std::shared_ptr<LibusbContext> context,
                   libusb_device* device);

    /// Reads the descriptors; false while the device is not configured. Main queue, until it has once been true.
    bool readDescriptors();
    /// Empty before readDescriptors(); not changed after it has been true. Any thread.
    const DeviceDescriptors& descriptors() const { return _descriptors; }
    /// The printer interfaces; none before the descriptors were read.
    const std::vector<InterfaceDescriptors>& interfaces() const { return _interfaces; }
    /// Of the bus that found the device; they outlive it. Any thread.
    BusServices& services() const { return *_services; }
    /// The node of the kernel's printer driver; nullopt while that is not bound. Any thread.
    std::optional<std::string> driverNode(std::uint8_t interface) const;

    /// The open node; opened if this process does not have it open yet. kIOReturnNotPrivileged when it may not be. Any
    /// thread.
    IOReturn connect(std::shared_ptr<DeviceConnection>& connection);
    /// The open node if there is one. Any thread.
    std::shared_ptr<DeviceConnection> connection();

    /// An update is under way at this location. Any thread.
    bool isKept() const { return _services->kept.contains(_descriptors.locationID()); }
    /// The update is over: claims without a user are released, and the kernel's driver gets the interfaces back a
    /// second later. Returns at once. Any thread.
    void keptEnded();
    /// The bus ends: gives everything back to the kernel's driver now. May wait for the device. Main queue.
    void giveBackNow();
    /// The bus has seen the device leave. Main queue.
    void end();
    /// Whether end() was called. Any thread.
    bool hasLeft() const { return _left; }

    /// Until time a refused open may succeed later, because udev grants permissions a moment after the node appears.
    /// Any thread.
    void rightsMayComeUntil(Clock::TimePoint time) { _rightsBy = time; }
    /// Whether that time has not passed yet. Any thread.
    bool mayRightsCome() const { return _services->clock().now() < _rightsBy.load(); }

  private:
    friend class DeviceConnection;
    void logHiddenJobs(const std::string& node);

    const std::shared_ptr<BusServices> _services;
    const std::shared_ptr<LibusbContext> _context;
    const DeviceReference _device;
    DeviceDescriptors _descriptors;
    std::vector<InterfaceDescriptors> _interfaces;
    std::atomic<bool> _left{false};
    std::atomic<bool> _isHiddenLogged{false};
    std::atomic<Clock::TimePoint> _rightsBy{};
    std::mutex _mutex;
    std::weak_ptr<DeviceConnection> _connection;
    std::shared_ptr<DeviceConnection> _claimed; // keeps the node open while interfaces are claimed without a user
    std::set<std::uint8_t>
        _driverless; // interfaces that the kernel's driver would have if it were not for this program
};

} // namespace zul
