// Resets and string indices of a whole device. Called by the engine on the printer's command queue; a re-enumeration
// reports to the core through the attachment.
#include "usb/libusb/LibusbDevice.h"

#include "platform/usb/IOReturn.h"
#include "usb/libusb/DeviceConnection.h"
#include "usb/libusb/LibusbResult.h"

#include <cstdint>
#include <libusb.h>

namespace zul {

IOReturn LibusbDevice::ResetDevice() {
    if (const IOReturn code = present(); code != kIOReturnSuccess) return code;
    const DeviceConnection::Transfer transfer(*_connection);
    return ioReturnFromLibusb(libusb_reset_device(_connection->handle()));
}

IOReturn LibusbDevice::USBDeviceReEnumerate(std::uint32_t /*options*/) {
    if (const IOReturn code = present(); code != kIOReturnSuccess) return code;
    const DeviceConnection::Transfer transfer(*_connection);
    // Claims go first: the library would take them again after the reset and report its own failure to do so with the
    // same code as a device that has become another one.
    const auto owners = _connection->releaseAll();
    const int result = libusb_reset_device(_connection->handle());
    // The device came back as a different one, or has left: the system's own events follow.
    if (result == LIBUSB_ERROR_NOT_FOUND || result == LIBUSB_ERROR_NO_DEVICE) return kIOReturnSuccess;
    if (result != 0) {
        // No reset was made: handles that had an interface open have it open still.
        for (const auto& [interface, owner] : owners) static_cast<void>(_connection->seize(interface, owner));
        return ioReturnFromLibusb(result);
    }
    if (_connection->device()->isKept()) {
        // Claimed before another program can do so; the handles of the new attachment take the claims over.
        for (const auto& [interface, owner] : owners) static_cast<void>(_connection->seize(interface, nullptr));
    }
    _attachment->gone = true;
    _attachment->reenumerated(_attachment);
    return kIOReturnSuccess;
}

IOReturn LibusbDevice::answer(std::uint8_t& index, std::uint8_t value) const {
    const IOReturn code = present();
    if (code == kIOReturnSuccess) index = value;
    return code;
}

IOReturn LibusbDevice::USBGetManufacturerStringIndex(std::uint8_t& index) {
    return answer(index, _connection->device()->descriptors().manufacturerIndex);
}

IOReturn LibusbDevice::USBGetProductStringIndex(std::uint8_t& index) {
    return answer(index, _connection->device()->descriptors().productIndex);
}

IOReturn LibusbDevice::USBGetSerialNumberStringIndex(std::uint8_t& index) {
    return answer(index, _connection->device()->descriptors().serialNumberIndex);
}

} // namespace zul
