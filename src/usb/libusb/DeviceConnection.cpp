// Claims. The kernel's printer driver is detached at the first claim and stays detached over the closes of a round of
// questions, because each return makes it question the printer again; when it gets the interface back is decided in
// DeviceConnection_GiveBack.cpp.
#include "usb/libusb/DeviceConnection.h"

#include "platform/usb/IOReturn.h"
#include "usb/libusb/AttachedDevice.h"
#include "usb/libusb/BusLimits.h"
#include "usb/libusb/LibusbResult.h"
#include "usb/libusb/PrinterDriver.h"

#include <cstdint>
#include <libusb.h>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace zul {

DeviceConnection::DeviceConnection(std::shared_ptr<AttachedDevice> device, libusb_device_handle* handle)
    : _device(std::move(device)), _handle(handle) {}

IOReturn DeviceConnection::seize(std::uint8_t interface, const void* owner) {
    for (;;) {
        IOReturn code = kIOReturnSuccess;
        {
            const std::scoped_lock lock(_mutex);
            code = seizeLocked(interface, owner);
        }
        // The node of the kernel's driver is new each time the driver gets the printer, and udev sets its rights a
        // moment later.
        if (code != kIOReturnNotPrivileged || !_device->mayRightsCome() || _device->hasLeft()) return code;
        clock().sleepFor(bus_limits::kAccessRetryInterval);
    }
}

IOReturn DeviceConnection::seizeLocked(std::uint8_t interface, const void* owner) {
    if (const auto held = _owners.find(interface); held != _owners.end()) {
        if (owner != nullptr) held->second = owner; // of a handle from before a re-enumeration, or none
        return kIOReturnSuccess;
    }
    int result = libusb_claim_interface(_handle, interface);
    // Busy: detach the kernel's driver if that holds the interface; if another process does, give up.
    if (result == LIBUSB_ERROR_BUSY && isDriverBound(interface)) {
        if (const IOReturn code = seizeFromDriver(interface, result); code != kIOReturnSuccess) return code;
    }
    if (result != 0) {
        scheduleReturn(interface); // the driver was perhaps detached for this claim
        return ioReturnFromLibusb(result);
    }
    // In use again: the driver must not get it back now.
    cancelReturn(interface);
    _owners[interface] = owner;
    if (owner == nullptr) {
        setDriverless(interface); // this program was first; the driver would have taken it at its arrival
        const std::scoped_lock lock(_device->_mutex);
        _device->_claimed = shared_from_this();
    }
    return kIOReturnSuccess;
}

IOReturn DeviceConnection::seizeFromDriver(std::uint8_t interface, int& result) {
    // The guard lives until the claim is made: no job can begin in between.
    PrintJobGuard jobs(*_device->services().nodeWatcher);
    if (const auto node = _device->driverNode(interface)) {
        const IOReturn code = jobs.keepJobsOut(*node);
        if (code == kIOReturnNotPrivileged && !_device->mayRightsCome()) _device->logHiddenJobs(*node);
        if (code != kIOReturnSuccess) return code;
    }
    if (const IOReturn code = detachDriver(interface); code != kIOReturnSuccess) return code;
    result = libusb_claim_interface(_handle, interface);
    return kIOReturnSuccess;
}

bool DeviceConnection::isDriverBound(std::uint8_t interface) const {
    return libusb_kernel_driver_active(_handle, interface) == 1;
}

IOReturn DeviceConnection::detachDriver(std::uint8_t interface) {
    const int result = libusb_detach_kernel_driver(_handle, interface);
    if (result == LIBUSB_ERROR_NOT_FOUND) return kIOReturnSuccess; // another process has detached it meanwhile
    if (result != 0) return ioReturnFromLibusb(result);
    setDriverless(interface);
    return kIOReturnSuccess;
}

IOReturn DeviceConnection::release(std::uint8_t interface, const void* owner) {
    const std::scoped_lock lock(_mutex);
    const auto held = _owners.find(interface);
    if (held == _owners.end() || held->second != owner) return kIOReturnError;
    if (_device->isKept() && !_device->hasLeft()) {
        held->second = nullptr;
        const std::scoped_lock deviceLock(_device->_mutex);
        _device->_claimed = shared_from_this();
        return kIOReturnSuccess;
    }
    _owners.erase(held);
    const int result = libusb_release_interface(_handle, interface);
    scheduleReturn(interface);
    return ioReturnFromLibusb(result);
}

IOReturn DeviceConnection::tryClaim(std::uint8_t interface) {
    const std::scoped_lock lock(_mutex);
    if (_owners.contains(interface)) return kIOReturnSuccess;
    const int result = libusb_claim_interface(_handle, interface);
    if (result == LIBUSB_ERROR_BUSY && isDriverBound(interface)) return printJobState(interface);
    if (result == 0) libusb_release_interface(_handle, interface);
    return ioReturnFromLibusb(result);
}

IOReturn DeviceConnection::printJobState(std::uint8_t interface) {
    const auto node = _device->driverNode(interface);
    if (!node) return kIOReturnSuccess;
    PrintJobGuard jobs(*_device->services().nodeWatcher);
    return jobs.keepJobsOut(*node);
}

bool DeviceConnection::isClaimed(std::uint8_t interface, const void* owner) {
    const std::scoped_lock lock(_mutex);
    const auto held = _owners.find(interface);
    return held != _owners.end() && held->second == owner;
}

std::map<std::uint8_t, const void*> DeviceConnection::releaseAll() {
    const std::scoped_lock lock(_mutex);
    const auto owners = _owners;
    releaseAllLocked();
    for (const auto& [interface, owner] : owners) scheduleReturn(interface);
    return owners;
}

void DeviceConnection::releaseAllLocked() {
    // "No such device" is the usual answer after a departure and no error here.
    for (const auto& [interface, owner] : _owners) libusb_release_interface(_handle, interface);
    _owners.clear();
}

bool DeviceConnection::isOnBus(std::uint8_t interface) {
    return !_device->hasLeft() && libusb_kernel_driver_active(_handle, interface) != LIBUSB_ERROR_NO_DEVICE;
}

} // namespace zul
