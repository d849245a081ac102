// Control requests.
#include "MockMachine.h"
#include "usb/libusb/LibusbInterface.h"

#include <cerrno>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

using namespace zul;

namespace {

using Journal = std::vector<std::string>;

IOUSBDevRequestTO deviceID(std::vector<char>& buffer, std::uint32_t completionTimeout = 100) {
    return {.bmRequestType = 0xA1,
            .bRequest = 0,
            .wLength = static_cast<std::uint16_t>(buffer.size()),
            .pData = buffer.data(),
            .noDataTimeout = 100,
            .completionTimeout = completionTimeout};
}

} // namespace

TEST_CASE("a control request works without a claim and returns the number of received bytes") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    printer.answersControl("abc");
    std::vector<char> buffer(64);
    IOUSBDevRequestTO request = deviceID(buffer);
    CHECK(bench.handle()->ControlRequestTO(0, request) == kIOReturnSuccess);
    CHECK(request.wLenDone == 3);
    CHECK(std::string(buffer.data(), 3) == "abc");
    CHECK(printer.journal() == Journal{"control a1 00 0000 0000 64"});
}

TEST_CASE("a control request for more than the kernel's limit is cut to it") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    printer.answersControl(std::string(5, 'x'));
    std::vector<char> buffer(65535);
    IOUSBDevRequestTO request = deviceID(buffer);
    CHECK(bench.handle()->ControlRequestTO(0, request) == kIOReturnSuccess);
    CHECK(request.wLength == 65535);
    CHECK(request.wLenDone == 5);
    CHECK(printer.journal() == Journal{"control a1 00 0000 0000 4096"});
}

TEST_CASE("a control request that sends more than the kernel's limit is a bad argument") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    std::vector<char> buffer(4097);
    IOUSBDevRequestTO request = deviceID(buffer);
    request.bmRequestType = 0x21;
    CHECK(bench.handle()->ControlRequestTO(0, request) == kIOReturnBadArgument);
    CHECK(printer.journal().empty());
}

TEST_CASE("a control request without data sends its fields as they are") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    printer.answersControl("");
    IOUSBDevRequestTO request{.bmRequestType = 0x21, .bRequest = 2, .wValue = 0x1234, .wIndex = 0x0501};
    CHECK(bench.handle()->ControlRequestTO(0, request) == kIOReturnSuccess);
    CHECK(request.wLenDone == 0);
    CHECK(printer.journal() == Journal{"control 21 02 1234 0501 0"});
}

TEST_CASE("a control request without a reply times out") {
    MockMachine bench;
    bench.plug();
    bench.start();
    std::vector<char> buffer(8);
    IOUSBDevRequestTO request = deviceID(buffer, 20);
    CHECK(bench.handle()->ControlRequestTO(0, request) == kIOUSBTransactionTimeout);
    CHECK(request.wLenDone == 0);
}

TEST_CASE("a control request ends when no data has arrived within its shorter time-out") {
    MockMachine bench;
    bench.plug();
    bench.start();
    std::vector<char> buffer(8);
    IOUSBDevRequestTO request = deviceID(buffer, /*completionTimeout=*/3600000); // with an hour the test would fail
    request.noDataTimeout = 20;
    CHECK(bench.handle()->ControlRequestTO(0, request) == kIOUSBTransactionTimeout);
}

TEST_CASE("the shorter time-out of a control request is the one that applies") {
    const auto timeout = [](std::uint32_t noData, std::uint32_t completion) {
        IOUSBDevRequestTO request;
        request.noDataTimeout = noData;
        request.completionTimeout = completion;
        return controlTimeout(request).count();
    };
    CHECK(timeout(500, 2000) == 500);
    CHECK(timeout(500, 1000) == 500);
    CHECK(timeout(100, 100) == 100);
    CHECK(timeout(2000, 500) == 500);
    CHECK(timeout(0, 300) == 300);
    CHECK(timeout(1, 0) == 1000); // without a time-out the bus uses its own, whatever the other one is
    CHECK(timeout(0, 0) == 1000);
}

TEST_CASE("a control request without a time-out ends, too") {
    MockMachine bench;
    bench.plug();
    bench.start();
    std::vector<char> buffer(8);
    IOUSBDevRequestTO request = deviceID(buffer, 0);
    request.noDataTimeout = 1;
    CHECK(bench.handle()->ControlRequestTO(0, request) == kIOUSBTransactionTimeout);
}

TEST_CASE("a control request that the device refuses yields pipe stalled and clears no halt") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    printer.answersControl("", -EPIPE);
    std::vector<char> buffer(8);
    IOUSBDevRequestTO request = deviceID(buffer);
    CHECK(bench.handle()->ControlRequestTO(0, request) == kIOUSBPipeStalled);
    CHECK(printer.journal() == Journal{"control a1 00 0000 0000 8"});
}

TEST_CASE("a control request on another pipe than 0 is refused before anything is sent") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    std::vector<char> buffer(8);
    IOUSBDevRequestTO request = deviceID(buffer);
    CHECK(bench.handle()->ControlRequestTO(1, request) == kIOUSBUnknownPipeErr);
    CHECK(printer.journal().empty());
}

TEST_CASE("a control request with a length and no buffer is a bad argument") {
    MockMachine bench;
    bench.plug();
    bench.start();
    IOUSBDevRequestTO request{.bmRequestType = 0xA1, .wLength = 8};
    CHECK(bench.handle()->ControlRequestTO(0, request) == kIOReturnBadArgument);
}

TEST_CASE("a control request during which the device is detached yields no device") {
    for (const int status : {-ESHUTDOWN, -ENODEV, -EPROTO}) {
        CAPTURE(status);
        MockMachine bench;
        MockPrinter& printer = bench.plug();
        bench.start();
        printer.vanishAtTransfer(0, status);
        std::vector<char> buffer(8);
        IOUSBDevRequestTO request = deviceID(buffer);
        CHECK(bench.handle()->ControlRequestTO(0, request) == kIOReturnNoDevice);
    }
}
