// The printers of ours that are attached to this machine, as the kernel shows them in its files: also those that may
// not be opened. Nothing is opened or asked. Any thread.
#pragma once

#include "usb/libusb/SystemFolders.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zul {

struct AttachedPrinter {
    std::string key{};      // keyUSBdevice
    std::string location{}; // "1-2.4"
    std::string node{};     // "/dev/bus/usb/001/004"
    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    std::vector<std::string> drivers{};     // the kernel's, of the printer's interfaces that have one: "usblp"
    std::vector<std::string> driverNodes{}; // of the kernel's printer driver, while it is bound: "/dev/usb/lp0"
};

/// The devices of our vendors, in the order of their locations.
std::vector<AttachedPrinter> attachedPrinters(const SystemFolders& folders);
/// The nodes of the kernel's printer driver for the device at location, one for each interface that it is bound to;
/// sorted.
std::vector<std::string> printerDriverNodes(const SystemFolders& folders, const std::string& location);

} // namespace zul
