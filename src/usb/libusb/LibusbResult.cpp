// The one place where a result of libusb becomes a code of this program. Called wherever libusb was called, on any
// thread.
#include "usb/libusb/LibusbResult.h"

#include "platform/usb/IOReturn.h"

#include <libusb.h>

namespace zul {

IOReturn ioReturnFromLibusb(int result) {
    if (result >= 0) return kIOReturnSuccess;
    switch (result) {
    case LIBUSB_ERROR_TIMEOUT:
        return kIOUSBTransactionTimeout;
    case LIBUSB_ERROR_PIPE:
        return kIOUSBPipeStalled;
    case LIBUSB_ERROR_OVERFLOW:
        return kIOReturnOverrun;
    case LIBUSB_ERROR_NO_DEVICE:
        return kIOReturnNoDevice;
    case LIBUSB_ERROR_BUSY:
        return kIOReturnExclusiveAccess;
    case LIBUSB_ERROR_ACCESS:
        return kIOReturnNotPrivileged;
    case LIBUSB_ERROR_NOT_FOUND:
        return kIOReturnNotFound;
    case LIBUSB_ERROR_NO_MEM:
        return kIOReturnNoMemory;
    case LIBUSB_ERROR_INVALID_PARAM:
        return kIOReturnBadArgument;
    case LIBUSB_ERROR_INTERRUPTED:
        return kIOReturnAborted;
    case LIBUSB_ERROR_IO:
        return kIOReturnNotResponding;
    case LIBUSB_ERROR_NOT_SUPPORTED:
    case LIBUSB_ERROR_OTHER:
    default:
        return kIOReturnError;
    }
}

} // namespace zul
