// Arrivals without udevd: the bus is scanned after kernel events or at intervals.
#include "MockMachine.h"
#include "support/SimulatedClock.h"

#include <dirent.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

// A system without udevd.
struct Bare {
    TemporaryFolder run;
    SimulatedClock clock;
    MockMachine bench;

    explicit Bare(bool takesKernelReports = true) : bench(&clock, options(takesKernelReports)) {}
    LibusbBusOptions options(bool takesKernelReports) const {
        LibusbBusOptions options;
        options.system.run = run.path;
        options.takesKernelReports = takesKernelReports;
        return options;
    }
    void advance(Clock::Duration span) { clock.advance(bench.mainQueue, span); }
    bool reports(const std::string& expected) {
        return bench.until([&] { return bench.eventList() == expected; });
    }
};

constexpr bool kRefused = false;

} // namespace

TEST_CASE("with udevd arrivals are reported by udevd") {
    MockMachine bench;
    if (!bench.hasUdevd()) return;
    CHECK(bench.bus.seesArrivals() == ArrivalSight::no);
    bench.start();
    CHECK(bench.bus.seesArrivals() == ArrivalSight::byUdev);
    bench.bus.stop();
    CHECK(bench.bus.seesArrivals() == ArrivalSight::no);
}

TEST_CASE("without udevd arrivals are reported by the kernel's events") {
    Bare bare;
    bare.bench.plug();
    bare.bench.start();
    CHECK(bare.bench.bus.seesArrivals() == ArrivalSight::byKernel);
    CHECK(bare.bench.eventList() == "arrived 1-2");
    bare.bench.plug({.port = "1-3", .address = 5});
    CHECK(bare.reports("arrived 1-2, arrived 1-3"));
    bare.bench.unplug("1-2");
    CHECK(bare.reports("arrived 1-2, arrived 1-3, terminated 1-2, removed 1-2"));
}

TEST_CASE("a killed udevd is not waited for") {
    Bare bare;
    { const ListeningUdevd killed(bare.run.path); } // its socket's file remains
    bare.bench.start();
    CHECK(bare.bench.bus.seesArrivals() == ArrivalSight::byKernel);
}

TEST_CASE("if the kernel's events are refused the bus is scanned every two seconds") {
    Bare bare(kRefused);
    bare.bench.start();
    CHECK(bare.bench.bus.seesArrivals() == ArrivalSight::byRescan);
    bare.bench.plug();
    bare.advance(1999ms);
    CHECK(bare.bench.events.empty());
    bare.advance(1ms);
    CHECK(bare.reports("arrived 1-2"));
    bare.bench.unplug();
    bare.advance(2s);
    CHECK(bare.reports("arrived 1-2, terminated 1-2, removed 1-2"));
}

TEST_CASE("a scan of an unchanged bus reports no event") {
    Bare bare(kRefused);
    bare.bench.plug();
    bare.bench.start();
    for (int i = 0; i < 3; ++i) bare.advance(2s);
    bare.bench.plug({.port = "1-3", .address = 5}); // for the next scan
    bare.advance(2s);
    CHECK(bare.reports("arrived 1-2, arrived 1-3"));
}

TEST_CASE("a printer that returned with its old address between two scans is reported as removed and arrived") {
    Bare bare(kRefused);
    bare.bench.plug();
    bare.bench.start();
    // The kernel gives each attachment a folder with a new inode; a mocked folder could reuse the old one.
    DIR* const folder = ::opendir("/sys/devices/usb1/1-2");
    REQUIRE(folder != nullptr);
    bare.bench.unplug();
    bare.bench.plug();
    ::closedir(folder);
    bare.advance(2s);
    CHECK(bare.reports("arrived 1-2, terminated 1-2, removed 1-2, arrived 1-2"));
}

TEST_CASE("a printer keeps working after the bus was scanned again") {
    Bare bare(kRefused);
    MockPrinter& printer = bare.bench.plug();
    bare.bench.start();
    const auto handle = bare.bench.openHandle();
    bare.bench.plug({.port = "1-3", .address = 5});
    bare.advance(2s);
    REQUIRE(bare.reports("arrived 1-2, arrived 1-3"));
    CHECK(handle->WritePipeTO(kPipeOut, "frame", 5, 1000, 1000) == kIOReturnSuccess);
    CHECK(printer.received() == "frame");
}

TEST_CASE("only attached printers keep the sessions in which they were found") {
    Bare bare(kRefused);
    bare.bench.start();
    for (unsigned i = 0; i < 3; ++i) {
        bare.bench.plug({.address = 4 + i});
        bare.advance(2s);
        REQUIRE(bare.bench.until([&] { return bare.bench.registry.services().size() == 1; }));
        bare.bench.unplug();
        bare.advance(2s);
        REQUIRE(bare.bench.until([&] { return bare.bench.registry.services().empty(); }));
    }
    CHECK(bare.bench.until([&] { return LibusbBus::liveSessions() == 0; }));
}

TEST_CASE("a stopped bus is no longer scanned") {
    Bare bare(kRefused);
    bare.bench.start();
    bare.bench.bus.stop();
    bare.bench.plug();
    CHECK(bare.clock.drain(bare.bench.mainQueue, 10s)); // no timer is left
    CHECK(bare.bench.events.empty());
}
