// Who may open the node, who holds the interface, and what becomes of the kernel's own printer driver.
#include "Bench.h"

#include <cerrno>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

using namespace zul;

namespace {

using Journal = std::vector<std::string>;

} // namespace

TEST_CASE("a node that may not be opened gives not privileged and no handle") {
    Bench bench;
    bench.plug({.mode = 0});
    bench.start();
    std::shared_ptr<IOUSBInterfaceInterface> handle;
    CHECK(bench.service()->createInterfaceInterface(handle) == kIOReturnNotPrivileged);
    CHECK(handle == nullptr);
}

TEST_CASE("a handle opens the node without claiming the interface") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    const auto handle = bench.handle();
    CHECK(bench.nodeOpens() == 1);
    CHECK(printer.journal().empty());
}

TEST_CASE("the handles of two interfaces of a device share one open node") {
    Bench bench;
    MockPrinter& printer = bench.plug({.interfaces = 2});
    bench.start();
    const auto first = bench.openHandle(0);
    const auto second = bench.openHandle(1);
    CHECK(bench.nodeOpens() == 1);
    CHECK(printer.journal() == Journal{"claim 0", "claim 1"});
}

TEST_CASE("the node is closed with the last handle") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    auto handle = bench.openHandle();
    REQUIRE(bench.nodeOpens() == 1);
    handle = nullptr;
    CHECK(bench.nodeOpens() == 0);
    CHECK(printer.journal() == Journal{"claim 0", "release 0"});
}

TEST_CASE("a claim of an interface that this handle holds is success without asking again") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    const auto handle = bench.openHandle();
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(printer.journal() == Journal{"claim 0"});
}

TEST_CASE("an interface that another program holds gives exclusive access and is left alone") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    printer.holdByOther(true);
    bench.start();
    const auto handle = bench.handle();
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    CHECK(printer.journal() == Journal{"claim 0 busy"});
}

TEST_CASE("a close gives the claim up and can be followed by another open") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    const auto handle = bench.openHandle();
    CHECK(handle->USBInterfaceClose() == kIOReturnSuccess);
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(printer.journal() == Journal{"claim 0", "release 0", "claim 0"});
}

TEST_CASE("a close of an interface that is not claimed is an error and asks nothing of the system") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    CHECK(bench.handle()->USBInterfaceClose() == kIOReturnError);
    CHECK(printer.journal().empty());
}

TEST_CASE("the kernel's printer driver is taken off at the open and stays off over closes") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    const auto handle = bench.openHandle();
    CHECK(handle->USBInterfaceClose() == kIOReturnSuccess);
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(printer.journal() == Journal{"claim 0 busy", "detach 0", "claim 0", "release 0", "claim 0"});
    CHECK(printer.kernelDriver().empty());
}

TEST_CASE("the kernel's printer driver gets the printer back when the last handle goes") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    auto handle = bench.openHandle();
    handle = nullptr;
    CHECK(printer.journal() == Journal{"claim 0 busy", "detach 0", "claim 0", "release 0", "attach 0"});
    CHECK(printer.kernelDriver() == "usblp");
}

TEST_CASE("a driver that was never taken off is not given anything back") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    bench.handle() = nullptr;
    CHECK(printer.journal().empty());
}

TEST_CASE("a printer that is expected to restart is not given back when its handle goes") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    auto handle = bench.openHandle();
    bench.bus.setRestartExpected(0x01200000, true);
    handle = nullptr;
    CHECK(printer.kernelDriver().empty());
}

TEST_CASE("a printer whose restart is no longer expected is given back again") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    auto handle = bench.openHandle();
    bench.bus.setRestartExpected(0x01200000, true);
    bench.bus.setRestartExpected(0x01200000, false);
    handle = nullptr;
    CHECK(printer.kernelDriver() == "usblp");
}

TEST_CASE("a bus that stops gives open printers back") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    const auto handle = bench.openHandle();
    bench.bus.stop();
    CHECK(printer.journal() == Journal{"claim 0 busy", "detach 0", "claim 0", "release 0", "attach 0"});
}

TEST_CASE("a printer that has left is not given back") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    auto handle = bench.openHandle();
    bench.unplug();
    REQUIRE(bench.until([&] { return bench.told.size() == 3; }));
    handle = nullptr;
    CHECK(printer.journal() == Journal{"claim 0 busy", "detach 0", "claim 0"});
}

TEST_CASE("a silent claim of a free interface leaves it free") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    CHECK(bench.handle()->tryClaim() == kIOReturnSuccess);
    CHECK(printer.journal() == Journal{"claim 0", "release 0"});
}

TEST_CASE("a silent claim of an own interface keeps it") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    CHECK(bench.openHandle()->tryClaim() == kIOReturnSuccess);
    CHECK(printer.journal() == Journal{"claim 0", "release 0"}); // the release is the handle's end
}

TEST_CASE("a silent claim of an interface that another program holds gives exclusive access") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    printer.holdByOther(true);
    bench.start();
    CHECK(bench.handle()->tryClaim() == kIOReturnExclusiveAccess);
}

TEST_CASE("a silent claim does not take the kernel's printer driver off") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    CHECK(bench.handle()->tryClaim() == kIOReturnSuccess);
    CHECK(printer.kernelDriver() == "usblp");
    CHECK(printer.journal() == Journal{"claim 0 busy"});
}

TEST_CASE("a claim that the system refuses for a reason of its own gives the code of that reason") {
    Bench bench;
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

TEST_CASE("a kernel driver that cannot be taken off refuses the open with the reason") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    const auto handle = bench.handle();
    printer.refuses(USBDEVFS_IOCTL, EINVAL);
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnBadArgument);
}

TEST_CASE("every call on a handle whose device has left gives no device") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    const auto service = bench.service();
    const auto handle = bench.openHandle();
    std::shared_ptr<IOUSBDeviceInterface> device;
    REQUIRE(handle->GetDevice(device) == kIOReturnSuccess);
    bench.unplug();
    REQUIRE(bench.until([&] { return bench.told.size() == 3; }));
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
