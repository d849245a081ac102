// Claims, the device handle and the watch for another holder. Called by the engine on the printer's command queue; main
// ends the watch when the handle goes. Transfers are in LibusbInterface_Transfers.cpp.
#include "usb/libusb/LibusbInterface.h"

#include "platform/usb/DescribedInterface.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "platform/usb/PrinterReservations.h"
#include "usb/libusb/Attachment.h"
#include "usb/libusb/BusServices.h"
#include "usb/libusb/DeviceConnection.h"
#include "usb/libusb/HolderWatch.h"
#include "usb/libusb/LibusbDevice.h"
#include "usb/libusb/LibusbResult.h"
#include "usb/libusb/ProcessSearch.h"
#include "usb/libusb/SystemFolders.h"

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace zul {

LibusbInterface::LibusbInterface(std::shared_ptr<Attachment> attachment, std::shared_ptr<DeviceConnection> connection,
                                 DescriptorValues descriptors)
    : DescribedInterface(std::move(descriptors)), _attachment(std::move(attachment)),
      _connection(std::move(connection)) {}

LibusbInterface::~LibusbInterface() {
    if (_watch != nullptr) _watch->end();
    // A failure needs no answer: the interface is not claimed, or the device has left.
    static_cast<void>(_connection->release(_descriptors.interfaceNumber, this));
}

IOReturn LibusbInterface::USBInterfaceOpenSeize() {
    if (const IOReturn code = present(); code != kIOReturnSuccess) return code;
    if (_connection->isClaimed(_descriptors.interfaceNumber, this)) return kIOReturnSuccess;
    // Also where the interface is free: the process that updates the printer does not hold it during restarts.
    if (reservationElsewhere(device().services(), device().descriptors().key())) return kIOReturnExclusiveAccess;
    return _connection->seize(_descriptors.interfaceNumber, this);
}

IOReturn LibusbInterface::USBInterfaceClose() {
    _surplus.clear();
    const IOReturn code = _connection->release(_descriptors.interfaceNumber, this);
    return present() == kIOReturnSuccess ? code : kIOReturnNoDevice;
}

InterfaceHolder LibusbInterface::holder() {
    if (present() != kIOReturnSuccess) return {};
    if (const auto reserved = reservationElsewhere(device().services(), device().descriptors().key())) return *reserved;
    const SystemFolders& folders = device().services().options.system;
    if (const auto node = device().driverNode(_descriptors.interfaceNumber)) {
        const auto printing = processesWithOpen(folders, *node);
        // Where one may not look into other users' processes, the driver itself still says that a job is printed.
        if (!printing.empty()) return probableHolder(printing, InterfaceHolder::Kind::printing);
        if (_connection->printJobState(_descriptors.interfaceNumber) == kIOReturnExclusiveAccess) {
            InterfaceHolder job;
            job.kind = InterfaceHolder::Kind::printing;
            return job;
        }
    }
    return probableHolder(processesWithOpen(folders, device().descriptors().nodePath()),
                          InterfaceHolder::Kind::process);
}

IOReturn LibusbInterface::tryClaim() {
    if (const IOReturn code = present(); code != kIOReturnSuccess) return code;
    if (reservationElsewhere(device().services(), device().descriptors().key())) return kIOReturnExclusiveAccess;
    return _connection->tryClaim(_descriptors.interfaceNumber);
}

IOReturn LibusbInterface::GetDevice(std::shared_ptr<IOUSBDeviceInterface>& device) {
    device = nullptr;
    const IOReturn code = present();
    if (code == kIOReturnSuccess) device = std::make_shared<LibusbDevice>(_attachment, _connection);
    return code;
}

void LibusbInterface::watchHolder(std::function<void()> mayBeFree) {
    std::shared_ptr<HolderWatch> watch;
    if (mayBeFree != nullptr && !_attachment->gone) {
        // The attachment may end during the watch: from then on there is no holder to wait for.
        auto whileThere = [weak = std::weak_ptr<Attachment>(_attachment), mayBeFree = std::move(mayBeFree)] {
            const auto attachment = weak.lock();
            if (attachment != nullptr && !attachment->gone) mayBeFree();
        };
        watch = HolderWatch::begin(_attachment->device, _descriptors.interfaceNumber, std::move(whileThere));
    }
    {
        const std::scoped_lock lock(_watchMutex);
        watch.swap(_watch);
    }
    if (watch != nullptr) watch->end();
}

IOReturn LibusbInterface::result(int libusbResult) const {
    const IOReturn code = ioReturnFromLibusb(libusbResult);
    // A device that leaves in the middle of a transfer shows as an I/O error or as gone, by chance: asking the kernel
    // makes one answer of both where it knows already.
    if (code == kIOReturnNotResponding && !_connection->isOnBus(_descriptors.interfaceNumber)) return kIOReturnNoDevice;
    return code;
}

} // namespace zul
