// What an operator reads when a printer or the bus cannot be used: what happened and what to do, without return codes.
// Shared by the command line and the window. Any thread.
#pragma once

#include "platform/usb/IOReturn.h"

#include <string>

namespace zul {

/// Why the printer (named as a sentence begins) could not be opened, and what to do.
std::string openFailureText(const std::string& printer, IOReturn code);
/// Why the printer did not take a command, and what to do.
std::string commandFailureText(const std::string& printer, IOReturn code);
/// Why a reset of the printer (by the name of its command, "soft-reset") failed, and what to do.
std::string resetFailureText(const std::string& printer, const std::string& reset, IOReturn code);
/// That no bus can be watched, and what to do.
std::string busFailureText(IOReturn code);

} // namespace zul
