// The device IDs that were read before a device was announced, one per printer interface.
#pragma once

#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"

#include <cstdint>
#include <vector>

namespace zul {

/// One request for a device ID and what came of it.
struct DeviceIdentity {
    std::uint16_t value = 0; // of the request
    std::uint16_t index = 0;
    bool isMissing = true;            // no answer in the whole time
    std::vector<unsigned char> reply; // as it came over the wire

    /// Whether this is the answer to the request. Any thread.
    bool answers(const IOUSBDevRequestTO& request) const;
    /// Fills the request as the device would have; kIOUSBTransactionTimeout at once when the answer is missing.
    IOReturn fill(IOUSBDevRequestTO& request) const;
};

/// The printer class's request for an interface's device ID, whichever interface it names.
bool isDeviceIDRequest(const IOUSBDevRequestTO& request);

} // namespace zul
