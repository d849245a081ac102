// Collecting what libusb and the scans report, and handing it to the main queue in one order. add() on any thread, the
// rest on the main queue.
#include "usb/libusb/BusInbox.h"

#include <deque>
#include <libusb.h>
#include <mutex>
#include <optional>
#include <utility>

namespace zul {

DeviceKey keyOf(libusb_device* device) {
    return {libusb_get_bus_number(device), libusb_get_device_address(device)};
}

void BusInbox::add(BusEvent event) {
    {
        const std::scoped_lock lock(_mutex);
        if (_port->isClosed()) return;
        _events.push_back(std::move(event));
    }
    // Closed meanwhile: the events are not read any more, and what they hold must not outlive the session.
    if (!_port->post(_reader)) clear();
}

bool BusInbox::take(std::optional<BusEvent>& event) {
    event.reset();
    const std::scoped_lock lock(_mutex);
    if (_events.empty()) return false;
    event.emplace(std::move(_events.front()));
    _events.pop_front();
    return true;
}

void BusInbox::clear() {
    std::deque<BusEvent> dropped; // destroyed after the lock
    const std::scoped_lock lock(_mutex);
    dropped.swap(_events);
}

} // namespace zul
