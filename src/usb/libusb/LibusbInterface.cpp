// Claims, the device handle and the watch for another holder. Transfers are in LibusbInterface_Transfers.cpp.
#include "usb/libusb/LibusbInterface.h"

#include "usb/libusb/LibusbDevice.h"
#include "usb/libusb/LibusbResult.h"

namespace zul {

LibusbInterface::LibusbInterface(std::shared_ptr<Attachment> attachment, std::shared_ptr<DeviceConnection> connection,
                                 const InterfaceFacts& facts)
    : DescribedInterface(attachment->device->facts(), facts), _attachment(std::move(attachment)),
      _connection(std::move(connection)) {}

LibusbInterface::~LibusbInterface() {
    if (_watch != nullptr) _watch->end();
    // Nothing to do about a failure: not claimed, or the device has left.
    static_cast<void>(_connection->release(_facts.number, this));
}

IOReturn LibusbInterface::USBInterfaceOpenSeize() {
    if (const IOReturn code = present(); code != kIOReturnSuccess) return code;
    return _connection->seize(_facts.number, this);
}

IOReturn LibusbInterface::USBInterfaceClose() {
    _surplus.clear();
    const IOReturn code = _connection->release(_facts.number, this);
    return present() == kIOReturnSuccess ? code : kIOReturnNoDevice;
}

IOReturn LibusbInterface::tryClaim() {
    if (const IOReturn code = present(); code != kIOReturnSuccess) return code;
    return _connection->tryClaim(_facts.number);
}

IOReturn LibusbInterface::GetDevice(std::shared_ptr<IOUSBDeviceInterface>& device) {
    device = nullptr;
    const IOReturn code = present();
    if (code == kIOReturnSuccess) device = std::make_shared<LibusbDevice>(_attachment, _connection);
    return code;
}

void LibusbInterface::watchHolder(std::function<void()> mayBeFree) {
    const std::scoped_lock lock(_watchMutex);
    if (_watch != nullptr) _watch->end();
    _watch = nullptr;
    if (mayBeFree == nullptr || _attachment->gone) return;
    // The stay may end while the watch goes on: from then on there is nobody to wait for.
    const std::weak_ptr<Attachment> attachment = _attachment;
    auto whileThere = [attachment, mayBeFree = std::move(mayBeFree)] {
        const auto stay = attachment.lock();
        if (stay != nullptr && !stay->gone) mayBeFree();
    };
    _watch =
        HolderWatch::begin(_attachment->port, _attachment->nodeWatcher, _deviceFacts.nodePath(), std::move(whileThere));
}

IOReturn LibusbInterface::result(int libusbResult) const {
    const IOReturn code = ioReturnFromLibusb(libusbResult);
    // A device that leaves in the middle of a transfer shows as an I/O error or as gone, by chance: asking the kernel
    // makes one answer of both where it knows already.
    if (code == kIOReturnNotResponding && !_connection->isOnBus(_facts.number)) return kIOReturnNoDevice;
    return code;
}

} // namespace zul
