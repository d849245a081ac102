// Every row of the conversion of libusb's results. The other files of this folder get TIMEOUT, PIPE, OVERFLOW,
// NO_DEVICE, BUSY, ACCESS, NOT_FOUND, NO_MEM, INVALID_PARAM, IO and OTHER from the mocked system; INTERRUPTED and
// NOT_SUPPORTED are returned by no call of the bus on Linux and occur only here.
#include "usb/libusb/LibusbResult.h"

#include <doctest/doctest.h>
#include <libusb.h>

using namespace zul;

TEST_CASE("each libusb result has one return code") {
    CHECK(ioReturnFromLibusb(LIBUSB_SUCCESS) == kIOReturnSuccess);
    CHECK(ioReturnFromLibusb(LIBUSB_ERROR_TIMEOUT) == kIOUSBTransactionTimeout);
    CHECK(ioReturnFromLibusb(LIBUSB_ERROR_PIPE) == kIOUSBPipeStalled);
    CHECK(ioReturnFromLibusb(LIBUSB_ERROR_OVERFLOW) == kIOReturnOverrun);
    CHECK(ioReturnFromLibusb(LIBUSB_ERROR_NO_DEVICE) == kIOReturnNoDevice);
    CHECK(ioReturnFromLibusb(LIBUSB_ERROR_BUSY) == kIOReturnExclusiveAccess);
    CHECK(ioReturnFromLibusb(LIBUSB_ERROR_ACCESS) == kIOReturnNotPrivileged);
    CHECK(ioReturnFromLibusb(LIBUSB_ERROR_NOT_FOUND) == kIOReturnNotFound);
    CHECK(ioReturnFromLibusb(LIBUSB_ERROR_NO_MEM) == kIOReturnNoMemory);
    CHECK(ioReturnFromLibusb(LIBUSB_ERROR_INVALID_PARAM) == kIOReturnBadArgument);
    CHECK(ioReturnFromLibusb(LIBUSB_ERROR_INTERRUPTED) == kIOReturnAborted);
    CHECK(ioReturnFromLibusb(LIBUSB_ERROR_IO) == kIOReturnNotResponding);
    CHECK(ioReturnFromLibusb(LIBUSB_ERROR_NOT_SUPPORTED) == kIOReturnError);
    CHECK(ioReturnFromLibusb(LIBUSB_ERROR_OTHER) == kIOReturnError);
}

TEST_CASE("a byte count is success and an unknown result is an error") {
    CHECK(ioReturnFromLibusb(18) == kIOReturnSuccess);
    CHECK(ioReturnFromLibusb(-77) == kIOReturnError);
}

TEST_CASE("the codes have the values that log lines show") {
    CHECK(asHex(ioReturnFromLibusb(LIBUSB_ERROR_TIMEOUT)) == 0xE0004051);
    CHECK(asHex(ioReturnFromLibusb(LIBUSB_ERROR_PIPE)) == 0xE000404F);
    CHECK(asHex(ioReturnFromLibusb(LIBUSB_ERROR_BUSY)) == 0xE00002C5);
    CHECK(asHex(ioReturnFromLibusb(LIBUSB_ERROR_IO)) == 0xE00002ED);
}
