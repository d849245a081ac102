// Waiting until another program releases a printer.
#include "MockMachine.h"
#include "support/SimulatedClock.h"

using namespace zul;
using namespace std::chrono_literals;

namespace {

struct Held {
    SimulatedClock clock;
    MockMachine bench{&clock};
    MockPrinter& printer = bench.plug();
    std::shared_ptr<IOUSBInterfaceInterface> handle = (bench.start(), bench.handle());
    int reports = 0;

    Held() {
        printer.holdByOther(true);
        REQUIRE(handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    }
    void watch() {
        handle->watchHolder([this] { ++reports; });
    }
    void otherLetsGo() {
        printer.holdByOther(false);
        bench.openAndCloseNode(4);
    }
};

} // namespace

TEST_CASE("a close of the node by another program is reported while the holder is watched") {
    Held held;
    held.watch();
    held.otherLetsGo();
    CHECK(held.bench.until([&] { return held.reports == 1; }));
    CHECK(held.handle->tryClaim() == kIOReturnSuccess);
}

TEST_CASE("a read-only close of the node is reported, too") {
    Held held;
    held.watch();
    held.bench.openAndCloseNode(4, /*readOnly=*/true);
    CHECK(held.bench.until([&] { return held.reports == 1; }));
}

TEST_CASE("a holder that keeps the node open is checked every five seconds") {
    Held held;
    held.watch();
    held.clock.advance(held.bench.mainQueue, 4999ms);
    CHECK(held.reports == 0);
    held.clock.advance(held.bench.mainQueue, 1ms);
    CHECK(held.reports == 1);
    held.clock.advance(held.bench.mainQueue, 10s);
    CHECK(held.reports == 3);
}

TEST_CASE("an ended watch reports no more events") {
    Held held;
    held.watch();
    held.handle->watchHolder(nullptr);
    held.otherLetsGo();
    held.clock.advance(held.bench.mainQueue, 20s);
    held.bench.settle();
    CHECK(held.reports == 0);
}

TEST_CASE("a second watch replaces the first") {
    Held held;
    int first = 0;
    held.handle->watchHolder([&] { ++first; });
    held.watch();
    held.clock.advance(held.bench.mainQueue, 5s);
    CHECK(first == 0);
    CHECK(held.reports == 1);
}

TEST_CASE("claims and releases by this process are not reported") {
    Held held;
    held.watch();
    held.printer.holdByOther(false);
    CHECK(held.handle->tryClaim() == kIOReturnSuccess);
    CHECK(held.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(held.handle->USBInterfaceClose() == kIOReturnSuccess);
    std::shared_ptr<IOUSBInterfaceInterface> another;
    CHECK(held.bench.service()->createInterfaceInterface(another) == kIOReturnSuccess);
    another = nullptr;
    held.bench.settle();
    CHECK(held.reports == 0);
}

TEST_CASE("a watch ends when the device is detached") {
    Held held;
    held.watch();
    held.bench.leave();
    REQUIRE(held.bench.until([&] { return held.bench.events.size() == 3; }));
    held.clock.advance(held.bench.mainQueue, 20s);
    CHECK(held.reports == 0);
}

TEST_CASE("a watch ends with its handle") {
    Held held;
    held.watch();
    held.handle = nullptr;
    held.otherLetsGo();
    held.clock.advance(held.bench.mainQueue, 20s);
    held.bench.settle();
    CHECK(held.reports == 0);
}

TEST_CASE("a watch ends with the bus") {
    Held held;
    held.watch();
    held.bench.bus.stop();
    held.otherLetsGo();
    held.clock.advance(held.bench.mainQueue, 20s);
    CHECK(held.reports == 0);
}

TEST_CASE("two printers are watched independently") {
    Held held;
    held.bench.plug({.port = "1-3", .address = 6});
    REQUIRE(held.bench.until([&] { return held.bench.events.size() == 2; }));
    int other = 0;
    const auto second = held.bench.handle(1);
    second->watchHolder([&] { ++other; });
    held.watch();
    held.bench.openAndCloseNode(6);
    CHECK(held.bench.until([&] { return other == 1; }));
    CHECK(held.reports == 0);
}
