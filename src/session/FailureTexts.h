// Texts for the operator when a printer or the bus cannot be used: what happened and what to do, without return codes.
// Used by the command line and the window. Any thread.
#pragma once

#include "platform/usb/IOReturn.h"
#include "usb/libusb/SystemFolders.h"

#include <string>

namespace zul {

class TBUSBPrinter;

/// Why the printer could not be opened, and what to do. printer: its name as a sentence starts with it. node: for
/// kIOReturnNotPrivileged, the file that could not be opened.
std::string openFailureText(const std::string& printer, IOReturn code, const std::string& node);
/// The same for a printer object. If its own node is open, the refused file is the node of the kernel's printer driver;
/// looking that up reads sysfs.
std::string openFailureText(const TBUSBPrinter& printer, IOReturn code, const SystemFolders& folders = {});
/// The same text if the last open of the printer was refused for missing rights; empty otherwise.
std::string missingRightText(const TBUSBPrinter& printer, const SystemFolders& folders = {});
/// Why the printer did not accept a command, and what to do.
std::string commandFailureText(const std::string& printer, IOReturn code);
/// Why a reset of the printer failed, and what to do. reset: the name of its command, "soft-reset".
std::string resetFailureText(const std::string& printer, const std::string& reset, IOReturn code);
/// Why no USB bus can be watched, and what to do.
std::string busFailureText(IOReturn code);

} // namespace zul
