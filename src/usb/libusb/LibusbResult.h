// The border between libusb's result codes and the program's own: converted here and nowhere else.
#pragma once

#include "platform/usb/IOReturn.h"

namespace zul {

/// | libusb                          | code                      |
/// |---------------------------------|---------------------------|
/// | success, or a count (>= 0)      | kIOReturnSuccess          |
/// | TIMEOUT                         | kIOUSBTransactionTimeout  |
/// | PIPE (the caller clears the halt) | kIOUSBPipeStalled       |
/// | OVERFLOW                        | kIOReturnOverrun          |
/// | NO_DEVICE                       | kIOReturnNoDevice         |
/// | BUSY (only a claim gives it)    | kIOReturnExclusiveAccess  |
/// | ACCESS                          | kIOReturnNotPrivileged    |
/// | NOT_FOUND                       | kIOReturnNotFound         |
/// | NO_MEM                          | kIOReturnNoMemory         |
/// | INVALID_PARAM                   | kIOReturnBadArgument      |
/// | INTERRUPTED                     | kIOReturnAborted          |
/// | IO                              | kIOReturnNotResponding    |
/// | NOT_SUPPORTED, OTHER, unknown   | kIOReturnError            |
///
/// An unclaimed interface and a pipe that does not exist never reach libusb: the handle answers kIOReturnError and
/// kIOUSBUnknownPipeErr itself. Any thread.
IOReturn ioReturnFromLibusb(int result);

} // namespace zul
