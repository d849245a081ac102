// Printers that are kept during an update: no other program can claim them between two steps.
#include "MockMachine.h"
#include "FakeReservations.h"
#include "support/SimulatedClock.h"

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Journal = std::vector<std::string>;
constexpr std::uint32_t kLocation = 0x01200000;
constexpr const char* kKey = "2A71000301200000";
const std::string kDeviceID{"\0\x10MFG:Z;MDL:VK;", 16};

// An accepted printer that is bound to the kernel's driver and returns its device ID.
struct Kept {
    FakeReservations reservations;
    SimulatedClock clock;
    MockMachine bench{&clock, options()};
    MockPrinter* printer = nullptr;
    std::shared_ptr<IOUSBInterfaceInterface> handle;

    Kept() {
        plug();
        bench.start();
        clock.settle(bench.mainQueue);
        handle = bench.handle();
    }
    LibusbBusOptions options() {
        LibusbBusOptions options;
        options.reservations = &reservations;
        options.readsIdentityAhead = [](std::uint16_t vendor, std::uint16_t product) {
            return vendor == 0x2A71 && product == 3;
        };
        return options;
    }
    MockPrinter& plug(const Plug& plug = {}) {
        printer = &bench.plug(plug);
        printer->bindKernelDriver("usblp");
        for (unsigned i = 0; i < plug.interfaces; ++i) printer->answersControl(kDeviceID);
        return *printer;
    }
    /// Detaches the printer and attaches it with the next address.
    MockPrinter& restart(const Plug& next = {.address = 5}) {
        bench.unplug();
        REQUIRE(bench.until([&] { return bench.events.size() == 3; }));
        plug(next);
        REQUIRE(bench.until([&] { return bench.events.size() >= 4; }));
        return *printer;
    }
    void keep(bool kept = true) { bench.bus.setKept(kLocation, kept); }
    void advance(Clock::Duration span) { clock.advance(bench.mainQueue, span); }
    Journal claims() const {
        Journal journal = printer->journal();
        std::erase_if(journal, [](const std::string& line) { return line.starts_with("control"); });
        return journal;
    }
};

} // namespace

TEST_CASE("the kernel's driver of a kept printer is not attached again") {
    Kept kept;
    REQUIRE(kept.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    kept.keep();
    REQUIRE(kept.handle->USBInterfaceClose() == kIOReturnSuccess);
    kept.handle = nullptr;
    kept.advance(1h);
    CHECK(kept.printer->kernelDriver().empty());
}

TEST_CASE("the driver of a printer is not attached if an update begins within the second after its last use") {
    Kept kept;
    REQUIRE(kept.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    REQUIRE(kept.handle->USBInterfaceClose() == kIOReturnSuccess);
    kept.advance(500ms);
    kept.keep();
    kept.advance(1h);
    CHECK(kept.printer->kernelDriver().empty());
    kept.keep(false);
    kept.advance(1s);
    CHECK(kept.printer->kernelDriver() == "usblp");
}

TEST_CASE("a close of a kept printer ends the use and keeps the claim") {
    Kept kept;
    REQUIRE(kept.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    kept.keep();
    CHECK(kept.handle->USBInterfaceClose() == kIOReturnSuccess);
    CHECK(kept.claims() == Journal{"claim 0 busy", "detach 0", "claim 0"});
    CHECK(kept.handle->WritePipeTO(kPipeOut, "frame", 5, 1000, 1000) == kIOReturnError);
    CHECK(kept.handle->USBInterfaceClose() == kIOReturnError);
}

TEST_CASE("the next open of a kept printer takes the claim over, with any handle") {
    Kept kept;
    REQUIRE(kept.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    kept.keep();
    REQUIRE(kept.handle->USBInterfaceClose() == kIOReturnSuccess);
    kept.handle = nullptr;
    const auto next = kept.bench.openHandle();
    CHECK(kept.claims() == Journal{"claim 0 busy", "detach 0", "claim 0"});
    CHECK(next->WritePipeTO(kPipeOut, "frame", 5, 1000, 1000) == kIOReturnSuccess);
}

TEST_CASE("a printer that is no longer kept is released, and its driver attached a second later") {
    Kept kept;
    REQUIRE(kept.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    kept.keep();
    REQUIRE(kept.handle->USBInterfaceClose() == kIOReturnSuccess);
    kept.handle = nullptr;
    kept.keep(false);
    kept.advance(999ms);
    CHECK(kept.claims() == Journal{"claim 0 busy", "detach 0", "claim 0", "release 0"});
    kept.advance(1ms);
    CHECK(kept.printer->kernelDriver() == "usblp");
    CHECK(kept.bench.until([&] { return kept.bench.nodeOpens() == 0; }));
}

TEST_CASE("the end of an update does not release the claim of a user") {
    Kept kept;
    kept.keep();
    REQUIRE(kept.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    kept.keep(false);
    kept.advance(5s);
    CHECK(kept.handle->WritePipeTO(kPipeOut, "frame", 5, 1000, 1000) == kIOReturnSuccess);
    CHECK(kept.handle->USBInterfaceClose() == kIOReturnSuccess);
    kept.advance(1s);
    CHECK(kept.printer->kernelDriver() == "usblp");
}

TEST_CASE("a printer that returns to a kept location is claimed before it is announced") {
    Kept kept;
    kept.keep();
    MockPrinter& returned = kept.restart();
    CHECK(kept.bench.eventList() == "arrived 1-2, terminated 1-2, removed 1-2, arrived 1-2");
    REQUIRE(kept.claims() == Journal{"claim 0 busy", "detach 0", "claim 0"});
    const auto handle = kept.bench.openHandle();
    CHECK(kept.claims() == Journal{"claim 0 busy", "detach 0", "claim 0"});
    CHECK(returned.kernelDriver().empty());
}

TEST_CASE("every printer interface of a device that returns to a kept location is claimed") {
    Kept kept;
    kept.keep();
    kept.restart({.address = 5, .interfaces = 2});
    CHECK(kept.claims() ==
          Journal{"claim 0 busy", "detach 0", "claim 0", "claim 1"}); // the mocked driver is bound to both at once
}

TEST_CASE("a printer that returns to a kept location without being opened is kept until the end of the update") {
    Kept kept;
    kept.keep();
    kept.restart();
    kept.advance(1h);
    CHECK(kept.claims() == Journal{"claim 0 busy", "detach 0", "claim 0"});
    kept.keep(false);
    kept.advance(1s);
    CHECK(kept.claims() == Journal{"claim 0 busy", "detach 0", "claim 0", "release 0", "attach 0"});
}

TEST_CASE("a printer that was claimed before the kernel's driver was bound gets that driver in the end") {
    Kept kept;
    kept.keep();
    kept.bench.unplug();
    REQUIRE(kept.bench.until([&] { return kept.bench.events.size() == 3; }));
    MockPrinter& returned = kept.bench.plug({.address = 5});
    returned.answersControl(kDeviceID);
    REQUIRE(kept.bench.until([&] { return kept.bench.events.size() == 4; }));
    kept.keep(false);
    kept.advance(1s);
    CHECK(returned.kernelDriver() == "usblp");
}

TEST_CASE("a printer that returns to a kept location and is held by another program is still announced") {
    Kept kept;
    kept.keep();
    kept.bench.unplug();
    REQUIRE(kept.bench.until([&] { return kept.bench.events.size() == 3; }));
    MockPrinter& returned = kept.plug({.address = 5});
    returned.bindKernelDriver("");
    returned.holdByOther(true);
    REQUIRE(kept.bench.until([&] { return kept.bench.events.size() == 4; }));
    CHECK(kept.bench.handle()->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
}

TEST_CASE("another vendor's device at a kept location is not touched") {
    Kept kept;
    kept.keep();
    MockPrinter& stranger = kept.restart({.address = 5, .product = 99});
    kept.advance(5s);
    CHECK(kept.bench.nodeOpens(5) == 0);
    CHECK(stranger.journal().empty());
}

TEST_CASE("a printer at another location than the kept one is not claimed") {
    Kept kept;
    kept.keep();
    kept.restart({.port = "1-3", .address = 5});
    CHECK(kept.claims().empty());
}

TEST_CASE("a printer at a kept location that another process of this product has reserved is not touched") {
    Kept kept;
    kept.keep();
    kept.reservations.reserve(kKey);
    MockPrinter& returned = kept.restart();
    CHECK(returned.journal().empty());
}

TEST_CASE("a kept printer that is re-enumerated in place remains claimed") {
    Kept kept;
    REQUIRE(kept.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    kept.keep();
    std::shared_ptr<IOUSBDeviceInterface> device;
    REQUIRE(kept.handle->GetDevice(device) == kIOReturnSuccess);
    kept.printer->answersControl(kDeviceID);
    REQUIRE(device->USBDeviceReEnumerate(0) == kIOReturnSuccess);
    device = nullptr;
    kept.handle = nullptr;
    REQUIRE(kept.bench.until([&] { return kept.bench.events.size() == 4; }));
    kept.advance(5s);
    CHECK(kept.claims() == Journal{"claim 0 busy", "detach 0", "claim 0", "release 0", "reset", "claim 0"});
}

TEST_CASE("a kept printer of another kind that is re-enumerated in place is claimed again before it is announced") {
    Kept kept;
    kept.bench.unplug();
    REQUIRE(kept.bench.until([&] { return kept.bench.events.size() == 3; }));
    kept.plug({.address = 5, .product = 99}); // not prepared
    REQUIRE(kept.bench.until([&] { return kept.bench.events.size() == 4; }));
    kept.handle = kept.bench.openHandle();
    kept.keep();
    std::shared_ptr<IOUSBDeviceInterface> device;
    REQUIRE(kept.handle->GetDevice(device) == kIOReturnSuccess);
    REQUIRE(device->USBDeviceReEnumerate(0) == kIOReturnSuccess);
    CHECK(kept.claims() == Journal{"claim 0 busy", "detach 0", "claim 0", "release 0", "reset", "claim 0"});
}

TEST_CASE("a driver that was detached in vain at a kept location is attached again after the update") {
    Kept kept;
    kept.keep();
    MockPrinter& printer = *kept.printer;
    printer.whenDetached([&] { printer.holdByOtherFromInside(); });
    REQUIRE(kept.handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    kept.handle = nullptr; // the node is closed with the last handle
    kept.advance(5s);
    printer.holdByOther(false);
    kept.keep(false);
    kept.advance(1s);
    CHECK(printer.kernelDriver() == "usblp");
}

TEST_CASE("a bus that stops releases kept printers") {
    Kept kept;
    REQUIRE(kept.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    kept.keep();
    REQUIRE(kept.handle->USBInterfaceClose() == kIOReturnSuccess);
    kept.handle = nullptr;
    kept.bench.bus.stop();
    CHECK(kept.claims() == Journal{"claim 0 busy", "detach 0", "claim 0", "release 0", "attach 0"});
    CHECK(kept.bench.nodeOpens() == 0);
}

TEST_CASE("a printer whose transfer outlives a bus that kept it gets its driver back with its last handle") {
    Kept kept;
    REQUIRE(kept.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    kept.keep();
    RealClock real; // a simulated clock would wait for the request, which waits for the test
    SerialQueue queue("request", real);
    std::atomic<bool> isDone{false};
    queue.async([&] {
        std::array<char, 8> buffer{};
        IOUSBDevRequestTO request{.bmRequestType = 0x80, .bRequest = 6, .wLength = 8, .pData = buffer.data()};
        request.completionTimeout = 60000;
        CHECK(kept.handle->ControlRequestTO(0, request) == kIOReturnSuccess);
        isDone = true;
    });
    REQUIRE(kept.bench.until([&] { return kept.printer->journal().back() == "control 80 06 0000 0000 8"; }));
    kept.bench.bus.stop();
    CHECK(kept.printer->kernelDriver().empty());
    kept.printer->answersControl("12345678");
    REQUIRE(kept.bench.until([&] { return isDone.load(); }));
    kept.handle = nullptr;
    CHECK(kept.printer->kernelDriver() == "usblp");
    CHECK(kept.bench.nodeOpens() == 0);
}
