// Answering the engine's own request for a device ID with what was read ahead, byte for byte. Called by the handles,
// any thread.
#include "usb/libusb/DeviceIdentities.h"

#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace zul {

bool isDeviceIDRequest(const IOUSBDevRequestTO& request) {
    return request.bmRequestType == 0xA1 && request.bRequest == 0; // device to host, class, interface; GET_DEVICE_ID
}

bool DeviceIdentity::answers(const IOUSBDevRequestTO& request) const {
    return isDeviceIDRequest(request) && request.wValue == value && request.wIndex == index;
}

IOReturn DeviceIdentity::fill(IOUSBDevRequestTO& request) const {
    request.wLenDone = 0;
    if (isMissing) return kIOUSBTransactionTimeout;
    const std::size_t count = std::min<std::size_t>(reply.size(), request.wLength);
    std::copy_n(reply.begin(), count, static_cast<unsigned char*>(request.pData));
    request.wLenDone = static_cast<std::uint32_t>(count);
    return kIOReturnSuccess;
}

} // namespace zul
