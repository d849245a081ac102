// One attachment of a device to the bus as the engine sees it. A re-enumeration that resets in place ends one and
// begins another for the same device.
#pragma once

#include "usb/libusb/AttachedDevice.h"
#include "usb/libusb/DeviceConnection.h"
#include "usb/libusb/DeviceIdentities.h"

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

namespace zul {

struct Attachment {
    std::shared_ptr<AttachedDevice> device;
    /// For the bus: the device was reset in place and is to be announced again. Any thread.
    std::function<void(const std::shared_ptr<Attachment>&)> reenumerated;
    /// From here on every call on this attachment's handles answers kIOReturnNoDevice.
    std::atomic<bool> gone{false};

    // What was prepared before the announcement; not changed afterwards.
    std::vector<DeviceIdentity> identities;
    std::shared_ptr<DeviceConnection> preparedConnection; // until the announcement is over
};

} // namespace zul
