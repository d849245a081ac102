// The kernel's own printer driver (usblp): its device node, and whether a print job goes through it.
#pragma once

#include "platform/files/ScopedFd.h"
#include "platform/usb/IOReturn.h"
#include "usb/libusb/InterfaceDescriptors.h"
#include "usb/libusb/NodeWatcher.h"
#include "usb/libusb/SystemFolders.h"

#include <cstdint>
#include <optional>
#include <string>

namespace zul {

/// The driver's node for an interface, for example "/dev/usb/lp0"; nullopt while the driver is not bound to it. Reads
/// folders of the kernel only. Any thread.
std::optional<std::string> printerDriverNode(const SystemFolders& folders, const DeviceDescriptors& device,
                                             std::uint8_t interface);

/// Keeps print jobs out for as long as it lives. The driver admits one opener at a time, so having its node open means
/// that no job is printed and that none can begin until the driver is detached. Used on one thread.
class PrintJobGuard {
  public:
    /// The watcher does not report the guard's own close of the node.
    explicit PrintJobGuard(NodeWatcher& watcher) : _watcher(watcher) {}
    ~PrintJobGuard();
    PrintJobGuard(const PrintJobGuard&) = delete;
    PrintJobGuard& operator=(const PrintJobGuard&) = delete;

    /// Opens the node. Success when no job is printed, also when the driver has gone meanwhile;
    /// kIOReturnExclusiveAccess when a job is printed; kIOReturnNotPrivileged when the node may not be opened;
    /// kIOReturnNoResources when this process or the machine has run out of open files or memory. Never waits for the
    /// device. Once only.
    IOReturn keepJobsOut(const std::string& node);

  private:
    NodeWatcher& _watcher;
    std::string _node;
    ScopedFd _driver; // the open node
};

} // namespace zul
