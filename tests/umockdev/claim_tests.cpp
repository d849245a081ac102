// Opening the node, claiming the interface, and the effect on the kernel's printer driver.
#include "MockMachine.h"
#include "support/SimulatedClock.h"

#include <cerrno>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Journal = std::vector<std::string>;

// A printer that is bound to the kernel's driver.
struct Bound {
    SimulatedClock clock;
    MockMachine bench{&clock};
    MockPrinter& printer = bench.plug();
    std::shared_ptr<IOUSBInterfaceInterface> handle;

    Bound() {
        printer.bindKernelDriver("usblp");
        bench.start();
        handle = bench.handle();
    }
    void advance(Clock::Duration span) { clock.advance(bench.mainQueue, span); }
};

} // namespace

TEST_CASE("a node that may not be opened yields not privileged and no handle") {
    MockMachine bench;
    bench.plug({.mode = 0});
    bench.start();
    std::shared_ptr<IOUSBInterfaceInterface> handle;
    CHECK(bench.service()->createInterfaceInterface(handle) == kIOReturnNotPrivileged);
    CHECK(handle == nullptr);
}

TEST_CASE("a handle opens the node without claiming the interface") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    const auto handle = bench.handle();
    CHECK(bench.nodeOpens() == 1);
    CHECK(printer.journal().empty());
}

TEST_CASE("the handles of two interfaces of a device share one open node") {
    MockMachine bench;
    MockPrinter& printer = bench.plug({.interfaces = 2});
    bench.start();
    const auto first = bench.openHandle(0);
    const auto second = bench.openHandle(1);
    CHECK(bench.nodeOpens() == 1);
    CHECK(printer.journal() == Journal{"claim 0", "claim 1"});
}

TEST_CASE("the node is closed with the last handle") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    auto handle = bench.openHandle();
    REQUIRE(bench.nodeOpens() == 1);
    handle = nullptr;
    CHECK(bench.nodeOpens() == 0);
    CHECK(printer.journal() == Journal{"claim 0", "release 0"});
}

TEST_CASE("claiming an interface that this handle already holds succeeds without a system call") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    const auto handle = bench.openHandle();
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(printer.journal() == Journal{"claim 0"});
}

TEST_CASE("an interface that another program holds yields exclusive access and is not changed") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    printer.holdByOther(true);
    bench.start();
    const auto handle = bench.handle();
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    CHECK(printer.journal() == Journal{"claim 0 busy"});
}

TEST_CASE("a close releases the claim and can be followed by another open") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    const auto handle = bench.openHandle();
    CHECK(handle->USBInterfaceClose() == kIOReturnSuccess);
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(printer.journal() == Journal{"claim 0", "release 0", "claim 0"});
}

TEST_CASE("a close of an interface that is not claimed is an error and makes no system call") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    CHECK(bench.handle()->USBInterfaceClose() == kIOReturnError);
    CHECK(printer.journal().empty());
}

TEST_CASE("the kernel's printer driver is detached at the open and remains detached over closes") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    const auto handle = bench.openHandle();
    CHECK(handle->USBInterfaceClose() == kIOReturnSuccess);
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(printer.journal() == Journal{"claim 0 busy", "detach 0", "claim 0", "release 0", "claim 0"});
    CHECK(printer.kernelDriver().empty());
}

TEST_CASE("the kernel's printer driver is attached again one second after the last use") {
    Bound bound;
    REQUIRE(bound.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    REQUIRE(bound.handle->USBInterfaceClose() == kIOReturnSuccess);
    bound.advance(999ms);
    CHECK(bound.printer.kernelDriver().empty());
    bound.advance(1ms);
    CHECK(bound.printer.journal() == Journal{"claim 0 busy", "detach 0", "claim 0", "release 0", "attach 0"});
    CHECK(bound.printer.kernelDriver() == "usblp");
}

TEST_CASE("the kernel's printer driver is attached again only once") {
    Bound bound;
    REQUIRE(bound.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    REQUIRE(bound.handle->USBInterfaceClose() == kIOReturnSuccess);
    bound.advance(10s);
    bound.handle = nullptr;
    bound.advance(10s);
    bound.bench.bus.stop();
    CHECK(bound.printer.journal() == Journal{"claim 0 busy", "detach 0", "claim 0", "release 0", "attach 0"});
}

TEST_CASE("a use within the second delays the return until a second after that use") {
    Bound bound;
    REQUIRE(bound.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    REQUIRE(bound.handle->USBInterfaceClose() == kIOReturnSuccess);
    bound.advance(900ms);
    REQUIRE(bound.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    bound.advance(5s);
    CHECK(bound.printer.kernelDriver().empty());
    REQUIRE(bound.handle->USBInterfaceClose() == kIOReturnSuccess);
    bound.advance(999ms);
    CHECK(bound.printer.kernelDriver().empty());
    bound.advance(1ms);
    CHECK(bound.printer.kernelDriver() == "usblp");
}

TEST_CASE("the node remains open until the kernel's printer driver is attached again") {
    Bound bound;
    REQUIRE(bound.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    bound.handle = nullptr;
    CHECK(bound.bench.nodeOpens() == 1);
    bound.advance(1s);
    CHECK(bound.printer.kernelDriver() == "usblp");
    CHECK(bound.bench.until([&] { return bound.bench.nodeOpens() == 0; }));
}

TEST_CASE("the kernel's driver is not attached during a transfer") {
    Bound bound;
    REQUIRE(bound.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    REQUIRE(bound.handle->USBInterfaceClose() == kIOReturnSuccess);
    // A control request needs no claim; it waits for its reply while the second passes.
    RealClock real; // a simulated clock would wait for the request, which waits for the test
    SerialQueue queue("request", real);
    std::atomic<bool> isDone{false};
    queue.async([&] {
        std::array<char, 8> buffer{};
        IOUSBDevRequestTO request{.bmRequestType = 0x80, .bRequest = 6, .wLength = 8, .pData = buffer.data()};
        request.completionTimeout = 60000;
        CHECK(bound.handle->ControlRequestTO(0, request) == kIOReturnSuccess);
        isDone = true;
    });
    REQUIRE(bound.bench.until([&] { return bound.printer.journal().back() == "control 80 06 0000 0000 8"; }));
    bound.advance(5s);
    CHECK(bound.printer.kernelDriver().empty());
    bound.printer.answersControl("12345678");
    REQUIRE(bound.bench.until([&] { return isDone.load(); }));
    bound.advance(1s);
    CHECK(bound.printer.kernelDriver() == "usblp");
}

TEST_CASE("an interface claimed by another program just after the driver was detached gets the driver back later") {
    Bound bound;
    bound.printer.whenDetached([&] { bound.printer.holdByOtherFromInside(); });
    CHECK(bound.handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    bound.printer.holdByOther(false);
    bound.advance(1s);
    CHECK(bound.printer.kernelDriver() == "usblp");
}

TEST_CASE("a driver that was never detached is not attached") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    bench.handle() = nullptr;
    CHECK(printer.journal().empty());
}

TEST_CASE("a bus that stops attaches the driver of open printers again") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    const auto handle = bench.openHandle();
    bench.bus.stop();
    CHECK(printer.journal() == Journal{"claim 0 busy", "detach 0", "claim 0", "release 0", "attach 0"});
}

TEST_CASE("the driver of a detached printer is not attached again") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    auto handle = bench.openHandle();
    bench.unplug();
    REQUIRE(bench.until([&] { return bench.events.size() == 3; }));
    handle = nullptr;
    CHECK(printer.journal() == Journal{"claim 0 busy", "detach 0", "claim 0"});
}

TEST_CASE("a silent claim of a free interface leaves it free") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    CHECK(bench.handle()->tryClaim() == kIOReturnSuccess);
    CHECK(printer.journal() == Journal{"claim 0", "release 0"});
}

TEST_CASE("a silent claim of an interface that this handle holds keeps it") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    CHECK(bench.openHandle()->tryClaim() == kIOReturnSuccess);
    CHECK(printer.journal() == Journal{"claim 0", "release 0"}); // the release is the end of the handle
}

TEST_CASE("a silent claim of an interface that another program holds yields exclusive access") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    printer.holdByOther(true);
    bench.start();
    CHECK(bench.handle()->tryClaim() == kIOReturnExclusiveAccess);
}

TEST_CASE("a silent claim does not detach the kernel's printer driver") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    CHECK(bench.handle()->tryClaim() == kIOReturnSuccess);
    CHECK(printer.kernelDriver() == "usblp");
    CHECK(printer.journal() == Journal{"claim 0 busy"});
}

TEST_CASE("a claim that the system refuses for another reason yields the code of that reason") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    const auto handle = bench.handle();
    printer.refuses(USBDEVFS_CLAIMINTERFACE, ENOENT);
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnNotFound);
    printer.refuses(USBDEVFS_CLAIMINTERFACE, ENODEV);
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnNoDevice);
    printer.refuses(USBDEVFS_CLAIMINTERFACE, EFAULT);
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnError);
}

TEST_CASE("an open whose kernel driver cannot be detached is refused with the reason") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    const auto handle = bench.handle();
    printer.refuses(USBDEVFS_IOCTL, EINVAL);
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnBadArgument);
}

TEST_CASE("every call on a handle of a detached device yields no device") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    const auto service = bench.service();
    const auto handle = bench.openHandle();
    std::shared_ptr<IOUSBDeviceInterface> device;
    REQUIRE(handle->GetDevice(device) == kIOReturnSuccess);
    bench.unplug();
    REQUIRE(bench.until([&] { return bench.events.size() == 3; }));
    const Journal before = printer.journal();

    std::uint8_t byte = 0;
    std::uint16_t word = 0;
    std::uint32_t size = 8;
    PipeProperties pipe;
    IOUSBDevRequestTO request{.bmRequestType = 0x80, .bRequest = 6};
    char buffer[8] = {};
    std::shared_ptr<IOUSBInterfaceInterface> another;
    CHECK(service->createInterfaceInterface(another) == kIOReturnNoDevice);
    CHECK(handle->GetInterfaceClass(byte) == kIOReturnNoDevice);
    CHECK(handle->GetInterfaceNumber(byte) == kIOReturnNoDevice);
    CHECK(handle->GetNumEndpoints(byte) == kIOReturnNoDevice);
    CHECK(handle->GetDeviceVendor(word) == kIOReturnNoDevice);
    CHECK(handle->GetLocationID(size) == kIOReturnNoDevice);
    CHECK(handle->GetPipeProperties(kPipeIn, pipe) == kIOReturnNoDevice);
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnNoDevice);
    CHECK(handle->tryClaim() == kIOReturnNoDevice);
    CHECK(handle->ReadPipeTO(kPipeIn, buffer, size, 100, 100) == kIOReturnNoDevice);
    CHECK(handle->WritePipeTO(kPipeOut, buffer, 8, 100, 100) == kIOReturnNoDevice);
    CHECK(handle->ControlRequestTO(0, request) == kIOReturnNoDevice);
    CHECK(handle->GetDevice(device) == kIOReturnNoDevice);
    CHECK(handle->USBInterfaceClose() == kIOReturnNoDevice);
    CHECK(handle->USBInterfaceClose() == kIOReturnNoDevice);
    CHECK(printer.journal() == before);
}
