// The attached printers of our vendors as the kernel lists them in sysfs, including those that this user may not open.
// Opens no printer and sends no query. Any thread.
#pragma once

#include "usb/libusb/SystemFolders.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zul {

/// One device, as the kernel reports it.
struct AttachedPrinter {
    std::string key{};      // keyUSBdevice
    std::string location{}; // "1-2.4"
    std::string node{};     // "/dev/bus/usb/001/004"
    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    std::vector<std::string> drivers{};     // kernel drivers bound to the printer's interfaces: "usblp"
    std::vector<std::string> driverNodes{}; // nodes of the kernel's printer driver, while it is bound: "/dev/usb/lp0"
};

/// The devices of our vendors, sorted by location.
std::vector<AttachedPrinter> attachedPrinters(const SystemFolders& folders);
/// The nodes of the kernel's printer driver for the device at location, one per bound interface, sorted.
std::vector<std::string> printerDriverNodes(const SystemFolders& folders, const std::string& location);

} // namespace zul
