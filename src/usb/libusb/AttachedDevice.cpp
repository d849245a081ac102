// Reading a device's descriptors, opening its node once for all users, and giving its interfaces back. The core calls
// this on the main queue; handles connect on the printers' queues.
#include "usb/libusb/AttachedDevice.h"

#include "platform/foundation/Format.h"
#include "platform/usb/IOReturn.h"
#include "usb/libusb/BusServices.h"
#include "usb/libusb/DeviceConnection.h"
#include "usb/libusb/InterfaceDescriptors.h"
#include "usb/libusb/LibusbContext.h"
#include "usb/libusb/LibusbResult.h"
#include "usb/libusb/PrinterDriver.h"

#include <cstdint>
#include <libusb.h>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace zul {

AttachedDevice::AttachedDevice(std::shared_ptr<BusServices> services, std::shared_ptr<LibusbContext> context,
                               libusb_device* device)
    : _services(std::move(services)), _context(std::move(context)), _device(device) {}

bool AttachedDevice::readDescriptors() {
    DeviceDescriptors descriptors;
    const auto interfaces = readPrinterInterfaces(_device.get(), descriptors);
    _descriptors = descriptors;
    if (interfaces) _interfaces = *interfaces;
    return interfaces.has_value();
}

std::optional<std::string> AttachedDevice::driverNode(std::uint8_t interface) const {
    return printerDriverNode(_services->options.system, _descriptors, interface);
}

IOReturn AttachedDevice::connect(std::shared_ptr<DeviceConnection>& connection) {
    const std::scoped_lock lock(_mutex);
    connection = _connection.lock();
    if (connection != nullptr) return kIOReturnSuccess;
    // Still under the lock: two callers at once must not open the node twice.
    libusb_device_handle* handle = nullptr;
    if (const int result = libusb_open(_device.get(), &handle); result != 0) return ioReturnFromLibusb(result);
    connection = std::make_shared<DeviceConnection>(shared_from_this(), handle);
    _connection = connection;
    return kIOReturnSuccess;
}

std::shared_ptr<DeviceConnection> AttachedDevice::connection() {
    const std::scoped_lock lock(_mutex);
    return _connection.lock();
}

void AttachedDevice::keptEnded() {
    _services->runApart([self = shared_from_this()] {
        std::shared_ptr<DeviceConnection> connection = self->connection();
        if (connection == nullptr) {
            {
                const std::scoped_lock lock(self->_mutex);
                if (self->_driverless.empty()) return;
            }
            // No handle is left, but the kernel's driver is still missing: only an open node can give it the
            // interfaces.
            if (self->hasLeft() || self->connect(connection) != kIOReturnSuccess) return;
        }
        connection->releaseUnused();
    });
}

void AttachedDevice::giveBackNow() {
    const std::shared_ptr<DeviceConnection> open = connection();
    if (open == nullptr) return;
    open->giveBackNow();
    std::shared_ptr<DeviceConnection> claimed; // destroyed after the lock
    const std::scoped_lock lock(_mutex);
    claimed.swap(_claimed);
}

void AttachedDevice::end() {
    _left = true;
    const std::shared_ptr<DeviceConnection> last = connection();
    if (last == nullptr) return;
    // A claim may be under way, which waits for the kernel: not on the main queue.
    _services->runApart([self = shared_from_this(), last] {
        last->cancelReturns();
        std::shared_ptr<DeviceConnection> claimed; // destroyed after the lock
        const std::scoped_lock lock(self->_mutex);
        claimed.swap(self->_claimed);
    });
}

void AttachedDevice::logHiddenJobs(const std::string& node) {
    if (_isHiddenLogged.exchange(true)) return;
    logText("the printer at %s is left alone: %s may not be opened, so it cannot be seen whether a job is printed. "
            "Install the udev rule of this program, then plug the printer in again.",
            _descriptors.locationText(), node);
}

} // namespace zul
