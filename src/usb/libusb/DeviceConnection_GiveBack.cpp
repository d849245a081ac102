// Leaving printers as they were found: the kernel's printer driver gets an interface back a second after its last use,
// on a thread of its own, because the driver then reads the printer's device ID and waits for it. Never while an update
// is under way: the driver, and a print service through it, would hold the printer when it is needed again.
#include "platform/dispatch/Clock.h"
#include "usb/libusb/BusLimits.h"
#include "usb/libusb/BusServices.h"
#include "usb/libusb/DeviceConnection.h"
#include "usb/libusb/InterfaceDescriptors.h"

#include <cstdint>
#include <libusb.h>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace zul {

DeviceConnection::~DeviceConnection() {
    {
        const std::scoped_lock lock(_mutex);
        releaseAllLocked();
    }
    // While the bus runs, a return that is due keeps the connection alive; here it can only be overdue.
    if (!_device->hasLeft() && !_device->isKept()) {
        for (const InterfaceDescriptors& interface : _device->interfaces()) attachDriver(interface.number);
    }
    libusb_close(_handle);
}

void DeviceConnection::setDriverless(std::uint8_t interface) {
    const std::scoped_lock lock(_device->_mutex);
    _device->_driverless.insert(interface);
}

bool DeviceConnection::takeDriverless(std::uint8_t interface) {
    const std::scoped_lock lock(_device->_mutex);
    return _device->_driverless.erase(interface) > 0;
}

bool DeviceConnection::isDriverless(std::uint8_t interface) {
    const std::scoped_lock lock(_device->_mutex);
    return _device->_driverless.contains(interface);
}

// Under the lock.
void DeviceConnection::scheduleReturn(std::uint8_t interface) {
    BusServices& services = _device->services();
    if (!isDriverless(interface) || _device->hasLeft() || services.port->isClosed()) return;
    cancelReturn(interface);
    const Clock::TimePoint at = clock().now() + bus_limits::kIdleBeforeReturn;
    // The timer keeps the node open for so long.
    Block due = [self = shared_from_this(), interface] {
        self->_device->services().runApart([self, interface] { self->returnIfIdle(interface); });
    };
    _returns[interface] = {at, clock().callAt(at, std::move(due))};
}

// Under the lock.
void DeviceConnection::cancelReturn(std::uint8_t interface) {
    const auto found = _returns.find(interface);
    if (found == _returns.end()) return;
    clock().cancel(found->second.timer);
    _returns.erase(found);
}

void DeviceConnection::cancelReturns() {
    const std::scoped_lock lock(_mutex);
    for (const auto& [interface, pending] : _returns) clock().cancel(pending.timer);
    _returns.clear();
}

void DeviceConnection::returnIfIdle(std::uint8_t interface) {
    {
        const std::scoped_lock lock(_mutex);
        const auto due = _returns.find(interface);
        // Used meanwhile, or used and released again: then another timer runs.
        if (due == _returns.end() || due->second.at > clock().now() || _owners.contains(interface)) return;
        _returns.erase(due);
        if (_device->hasLeft() || _device->isKept()) return;
        if (_transfers > 0) {
            scheduleReturn(interface);
            return;
        }
    }
    // Without the lock: the driver may wait for the printer, and a claim that comes now is refused by the driver's and
    // takes it over in the usual way.
    attachDriver(interface);
}

void DeviceConnection::attachDriver(std::uint8_t interface) {
    if (!takeDriverless(interface)) return;
    const int result = libusb_attach_kernel_driver(_handle, interface);
    if (result == LIBUSB_ERROR_BUSY) setDriverless(interface); // claimed in this very moment
    _device->rightsMayComeUntil(clock().now() + bus_limits::kAccessWait);
}

void DeviceConnection::releaseUnused() {
    std::shared_ptr<DeviceConnection> last; // perhaps the last reference; dropped after the locks
    const std::scoped_lock lock(_mutex);
    if (_device->isKept()) return; // again
    std::erase_if(_owners, [this](const auto& claim) {
        if (claim.second != nullptr) return false;
        libusb_release_interface(_handle, claim.first);
        return true;
    });
    for (const InterfaceDescriptors& interface : _device->interfaces()) {
        if (!_owners.contains(interface.number)) scheduleReturn(interface.number);
    }
    const std::scoped_lock deviceLock(_device->_mutex);
    last.swap(_device->_claimed);
}

void DeviceConnection::giveBackNow() {
    {
        const std::scoped_lock lock(_mutex);
        if (_device->hasLeft()) return;
        for (const auto& [interface, pending] : _returns) clock().cancel(pending.timer);
        _returns.clear();
        if (_transfers > 0) return;
        releaseAllLocked();
    }
    for (const InterfaceDescriptors& interface : _device->interfaces()) attachDriver(interface.number);
}

} // namespace zul
