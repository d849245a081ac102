// Hints come in on the threads of their sources and are passed to the main queue. A refused watch is not a failure: the
// clock still asks.
#include "usb/libusb/HolderWatch.h"

#include "platform/dispatch/Clock.h"
#include "usb/libusb/AttachedDevice.h"
#include "usb/libusb/BusLimits.h"
#include "usb/libusb/BusServices.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace zul {

HolderWatch::HolderWatch(std::shared_ptr<AttachedDevice> device, std::uint8_t interface,
                         std::function<void()> mayBeFree)
    : _device(std::move(device)), _interface(interface), _mayBeFree(std::move(mayBeFree)) {}

std::shared_ptr<HolderWatch> HolderWatch::begin(std::shared_ptr<AttachedDevice> device, std::uint8_t interface,
                                                std::function<void()> mayBeFree) {
    std::shared_ptr<HolderWatch> watch(new HolderWatch(std::move(device), interface, std::move(mayBeFree)));
    watch->_nodeWatch = watch->watchNode(watch->_device->descriptors().nodePath());
    watch->watchDriverNode();
    watch->watchReservation();
    watch->armTimer();
    return watch;
}

void HolderWatch::end() {
    std::function<void()> dropped; // destroyed after the lock: their destruction may call this object
    std::shared_ptr<void> reservation;
    const std::scoped_lock lock(_mutex);
    if (_mayBeFree == nullptr) return;
    dropped.swap(_mayBeFree);
    reservation.swap(_reservationWatch);
    _device->services().nodeWatcher->remove(_nodeWatch);
    _device->services().nodeWatcher->remove(_driverWatch);
    _device->services().clock().cancel(_timer);
}

Block HolderWatch::hint() {
    return [weak = weak_from_this(), port = _device->services().port] {
        port->post([weak] {
            if (const auto self = weak.lock()) self->report();
        });
    };
}

std::uint64_t HolderWatch::watchNode(const std::string& path) {
    return _device->services().nodeWatcher->add(path, hint());
}

// The driver may get the printer, and with it a node, only during the wait; each time it is another node.
void HolderWatch::watchDriverNode() {
    const std::string node = _device->driverNode(_interface).value_or("");
    const std::scoped_lock lock(_mutex);
    if (_mayBeFree == nullptr || node == _driverNode) return;
    _device->services().nodeWatcher->remove(_driverWatch);
    _driverNode = node;
    _driverWatch = node.empty() ? 0 : watchNode(node);
}

void HolderWatch::watchReservation() {
    const BusServices& services = _device->services();
    const std::string key = _device->descriptors().key();
    if (!reservationElsewhere(services, key)) return;
    auto watch = services.options.reservations->watch(key, hint());
    const std::scoped_lock lock(_mutex);
    if (_mayBeFree != nullptr) _reservationWatch.swap(watch);
}

void HolderWatch::report() {
    std::function<void()> mayBeFree;
    {
        const std::scoped_lock lock(_mutex);
        mayBeFree = _mayBeFree;
    }
    if (mayBeFree != nullptr) mayBeFree();
}

void HolderWatch::armTimer() {
    const std::scoped_lock lock(_mutex);
    if (_mayBeFree == nullptr) return;
    Clock& clock = _device->services().clock();
    const auto port = _device->services().port;
    _timer = clock.callAt(clock.now() + bus_limits::kHolderPollInterval, [weak = weak_from_this(), port] {
        port->post([weak] {
            const auto self = weak.lock();
            if (self == nullptr) return;
            self->watchDriverNode();
            self->report();
            self->armTimer();
        });
    });
}

} // namespace zul
