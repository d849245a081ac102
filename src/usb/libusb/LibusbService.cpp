// Making the handle of a printer interface, which opens the device node. The engine calls it on the main queue when a
// printer of ours was announced.
#include "usb/libusb/LibusbService.h"

#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "usb/libusb/DeviceConnection.h"
#include "usb/libusb/LibusbInterface.h"

#include <memory>
#include <utility>

namespace zul {

IOReturn LibusbService::createInterfaceInterface(std::shared_ptr<IOUSBInterfaceInterface>& interfaceInterface) {
    interfaceInterface = nullptr;
    if (_attachment->gone) return kIOReturnNoDevice;
    std::shared_ptr<DeviceConnection> connection;
    const IOReturn code = _attachment->device->connect(connection);
    if (code != kIOReturnSuccess) return code;
    interfaceInterface = std::make_shared<LibusbInterface>(_attachment, std::move(connection), _descriptors);
    return kIOReturnSuccess;
}

} // namespace zul
