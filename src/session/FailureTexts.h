// What an operator reads when a printer or the bus cannot be used: what happened and what to do, without return codes.
// Shared by the command line and the window. Any thread.
#pragma once

#include "platform/usb/IOReturn.h"
#include "usb/libusb/SystemFolders.h"

#include <string>

namespace zul {

class TBUSBPrinter;

/// Why the printer (named as a sentence begins) could not be opened, and what to do. node: for kIOReturnNotPrivileged,
/// what may not be opened.
std::string openFailureText(const std::string& printer, IOReturn code, const std::string& node);
/// The same for a printer whose own node is open: there it is the node of the kernel's printer driver that may not be
/// opened. Reads folders of the kernel.
std::string openFailureText(const TBUSBPrinter& printer, IOReturn code, const SystemFolders& folders = {});
/// That text for a printer whose last open was refused because a right is missing; empty for any other printer.
std::string missingRightText(const TBUSBPrinter& printer, const SystemFolders& folders = {});
/// Why the printer did not take a command, and what to do.
std::string commandFailureText(const std::string& printer, IOReturn code);
/// Why a reset of the printer (by the name of its command, "soft-reset") failed, and what to do.
std::string resetFailureText(const std::string& printer, const std::string& reset, IOReturn code);
/// That no bus can be watched, and what to do.
std::string busFailureText(IOReturn code);

} // namespace zul
