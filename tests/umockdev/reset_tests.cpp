// The handle of the whole device: resets, re-enumeration, string indices.
#include "MockMachine.h"
#include "support/SimulatedClock.h"

#include <cerrno>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

using namespace zul;

namespace {

using Journal = std::vector<std::string>;

struct Resetter {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    std::shared_ptr<IOUSBInterfaceInterface> handle = (bench.start(), bench.openHandle());
    std::shared_ptr<IOUSBDeviceInterface> device = get();

    std::shared_ptr<IOUSBDeviceInterface> get() {
        std::shared_ptr<IOUSBDeviceInterface> got;
        REQUIRE(handle->GetDevice(got) == kIOReturnSuccess);
        REQUIRE(got->USBDeviceOpen() == kIOReturnSuccess);
        return got;
    }
};

} // namespace

TEST_CASE("a device returns its string indices from the descriptor") {
    Resetter resetter;
    std::uint8_t index = 0;
    CHECK((resetter.device->USBGetManufacturerStringIndex(index) == kIOReturnSuccess && index == 1));
    CHECK((resetter.device->USBGetProductStringIndex(index) == kIOReturnSuccess && index == 2));
    CHECK((resetter.device->USBGetSerialNumberStringIndex(index) == kIOReturnSuccess && index == 3));
}

TEST_CASE("a reset keeps the claim and causes no event") {
    Resetter resetter;
    CHECK(resetter.device->ResetDevice() == kIOReturnSuccess);
    CHECK(resetter.device->USBDeviceClose() == kIOReturnSuccess);
    CHECK(resetter.handle->WritePipeTO(kPipeOut, "frame", 5, 1000, 1000) == kIOReturnSuccess);
    resetter.bench.settle();
    CHECK(resetter.bench.eventList() == "arrived 1-2");
}

TEST_CASE("a reset that the system refuses yields an error") {
    Resetter resetter;
    resetter.printer.refuses(USBDEVFS_RESET, EIO);
    CHECK(resetter.device->ResetDevice() == kIOReturnError);
}

TEST_CASE("a reset of a device that returns as another one yields not found") {
    Resetter resetter;
    resetter.printer.refuses(USBDEVFS_RESET, ENODEV);
    CHECK(resetter.device->ResetDevice() == kIOReturnNotFound);
}

TEST_CASE("a re-enumeration in place is reported as a departure and an arrival with a new token") {
    Resetter resetter;
    MockMachine& bench = resetter.bench;
    const ServiceToken before = bench.token();
    CHECK(resetter.device->USBDeviceReEnumerate(0) == kIOReturnSuccess);
    CHECK(bench.eventList() == "arrived 1-2"); // no event before the main queue runs
    REQUIRE(bench.until([&] { return bench.events.size() == 4; }));
    CHECK(bench.eventList() == "arrived 1-2, terminated 1-2, removed 1-2, arrived 1-2");
    CHECK(bench.token() != before);
    CHECK(bench.registry.services().size() == 1);
}

TEST_CASE("after a re-enumeration in place the old handles yield no device and a new one works") {
    Resetter resetter;
    MockMachine& bench = resetter.bench;
    REQUIRE(resetter.device->USBDeviceReEnumerate(0) == kIOReturnSuccess);
    CHECK(resetter.device->USBDeviceClose() == kIOReturnNoDevice);
    CHECK(resetter.handle->USBInterfaceOpenSeize() == kIOReturnNoDevice);
    REQUIRE(bench.until([&] { return bench.events.size() == 4; }));
    const auto renewed = bench.openHandle();
    resetter.handle = nullptr; // the old handle is destroyed while the new one is in use
    CHECK(renewed->WritePipeTO(kPipeOut, "frame", 5, 1000, 1000) == kIOReturnSuccess);
    CHECK(resetter.printer.journal() == Journal{"claim 0", "release 0", "reset", "claim 0", "out 02 5"});
}

TEST_CASE("after a re-enumeration the kernel's driver is attached again a second after the new handle's end") {
    SimulatedClock clock;
    MockMachine bench{&clock};
    MockPrinter& printer = bench.plug();
    printer.bindKernelDriver("usblp");
    bench.start();
    auto handle = bench.openHandle();
    std::shared_ptr<IOUSBDeviceInterface> device;
    REQUIRE(handle->GetDevice(device) == kIOReturnSuccess);
    REQUIRE(device->USBDeviceReEnumerate(0) == kIOReturnSuccess);
    device = nullptr;
    handle = nullptr; // before the new service is known
    REQUIRE(bench.until([&] { return bench.events.size() == 4; }));
    auto renewed = bench.openHandle();
    clock.advance(bench.mainQueue, std::chrono::seconds(5));
    CHECK(printer.kernelDriver().empty());
    renewed = nullptr;
    clock.advance(bench.mainQueue, std::chrono::seconds(1));
    CHECK(printer.kernelDriver() == "usblp");
}

TEST_CASE(
    "a re-enumeration after which the system brings the device back itself is success and causes no further events") {
    Resetter resetter;
    resetter.printer.refuses(USBDEVFS_RESET, ENODEV);
    CHECK(resetter.device->USBDeviceReEnumerate(0) == kIOReturnSuccess);
    resetter.bench.settle();
    CHECK(resetter.bench.eventList() == "arrived 1-2");
}

TEST_CASE("a re-enumeration that the system refuses yields an error and changes no state") {
    Resetter resetter;
    resetter.printer.refuses(USBDEVFS_RESET, EIO);
    CHECK(resetter.device->USBDeviceReEnumerate(0) == kIOReturnError);
    resetter.bench.settle();
    CHECK(resetter.bench.eventList() == "arrived 1-2");
    CHECK(resetter.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
}

TEST_CASE("an open interface remains open when the system refuses a re-enumeration") {
    Resetter resetter;
    REQUIRE(resetter.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    resetter.printer.refuses(USBDEVFS_RESET, EIO);
    CHECK(resetter.device->USBDeviceReEnumerate(0) == kIOReturnError);
    resetter.printer.sends("00000006");
    char bytes[8] = {};
    std::uint32_t size = sizeof bytes;
    CHECK(resetter.handle->ReadPipeTO(kPipeIn, bytes, size, 1000, 1000) == kIOReturnSuccess);
    CHECK(std::string(bytes, size) == "00000006");
}

TEST_CASE("a device detached after a re-enumeration in place is reported as its new service") {
    Resetter resetter;
    MockMachine& bench = resetter.bench;
    REQUIRE(resetter.device->USBDeviceReEnumerate(0) == kIOReturnSuccess);
    REQUIRE(bench.until([&] { return bench.events.size() == 4; }));
    bench.unplug();
    REQUIRE(bench.until([&] { return bench.events.size() == 6; }));
    CHECK(bench.eventList() == "arrived 1-2, terminated 1-2, removed 1-2, arrived 1-2, terminated 1-2, removed 1-2");
}

TEST_CASE("every call on a device handle of a detached device yields no device") {
    Resetter resetter;
    MockMachine& bench = resetter.bench;
    bench.unplug();
    REQUIRE(bench.until([&] { return bench.events.size() == 3; }));
    std::uint8_t index = 0;
    CHECK(resetter.device->USBDeviceOpen() == kIOReturnNoDevice);
    CHECK(resetter.device->USBDeviceClose() == kIOReturnNoDevice);
    CHECK(resetter.device->ResetDevice() == kIOReturnNoDevice);
    CHECK(resetter.device->USBDeviceReEnumerate(0) == kIOReturnNoDevice);
    CHECK(resetter.device->USBGetManufacturerStringIndex(index) == kIOReturnNoDevice);
    CHECK(resetter.device->USBGetProductStringIndex(index) == kIOReturnNoDevice);
    CHECK(resetter.device->USBGetSerialNumberStringIndex(index) == kIOReturnNoDevice);
}
