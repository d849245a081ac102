// Looking at usblp's device node without disturbing a job: opening it shows whether a job has it. Called when an
// interface is to be claimed, on the printer's queue or the thread that prepares an arrival.
#include "usb/libusb/PrinterDriver.h"

#include "platform/usb/IOReturn.h"
#include "usb/libusb/InterfaceDescriptors.h"
#include "usb/libusb/SystemFolders.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <optional>
#include <string>
#include <utility>

namespace zul {

namespace {

std::optional<std::string> printerIn(const std::string& folder) {
    DIR* const directory = ::opendir(folder.c_str());
    if (directory == nullptr) return std::nullopt;
    std::optional<std::string> name;
    while (const dirent* entry = ::readdir(directory)) {
        if (std::strncmp(entry->d_name, "lp", 2) == 0) name = entry->d_name;
    }
    ::closedir(directory);
    return name;
}

IOReturn ioReturnFromOpen(int error) {
    switch (error) {
    case EBUSY:
        return kIOReturnExclusiveAccess;
    case EACCES:
    case EPERM:
        return kIOReturnNotPrivileged;
    case EMFILE:
    case ENFILE:
    case ENOMEM:
        return kIOReturnNoResources;
    default:
        // The driver or the device has gone, or the driver cannot use the device: a job would have answered "busy".
        return kIOReturnSuccess;
    }
}

} // namespace

std::optional<std::string> printerDriverNode(const SystemFolders& folders, const DeviceDescriptors& device,
                                             std::uint8_t interface) {
    const std::string name =
        device.locationText() + ":" + std::to_string(device.configurationValue) + "." + std::to_string(interface);
    const std::string folder = folders.sys + "/bus/usb/devices/" + name;
    auto printer = printerIn(folder + "/usbmisc");
    if (!printer) printer = printerIn(folder + "/usb"); // as older kernels call it
    if (!printer) return std::nullopt;
    return folders.dev + "/usb/" + *printer;
}

PrintJobGuard::~PrintJobGuard() {
    if (_driver) _watcher.closeUnseen(_node, std::move(_driver));
}

IOReturn PrintJobGuard::keepJobsOut(const std::string& node) {
    _node = node;
    do {
        _driver = ScopedFd(::open(node.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    } while (!_driver && errno == EINTR);
    return _driver ? kIOReturnSuccess : ioReturnFromOpen(errno);
}

} // namespace zul
