// One stay of a device on the bus as the engine sees it. A re-enumeration that resets in place ends one stay and begins
// another for the same device.
#pragma once

#include "usb/libusb/DeviceConnection.h"
#include "usb/libusb/MainPort.h"
#include "usb/libusb/NodeWatcher.h"

namespace zul {

struct Attachment {
    std::shared_ptr<AttachedDevice> device;
    std::shared_ptr<MainPort> port;
    std::shared_ptr<NodeWatcher> nodeWatcher;
    /// For the bus: the device was reset in place and counts as new. Any thread.
    std::function<void(const std::shared_ptr<Attachment>&)> reenumerated;
    /// From here on every call on this stay's handles answers kIOReturnNoDevice.
    std::atomic<bool> gone{false};
};

} // namespace zul
