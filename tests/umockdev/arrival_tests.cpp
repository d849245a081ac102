// The bus's reports of devices that arrive, leave, are reported twice, or may not be opened yet.
#include "MockMachine.h"

#include "support/SimulatedClock.h"
#include "usb/libusb/LibusbBusCore.h"
#include <set>

#include <libusb.h>

namespace zul {

/// libusb itself drops most repeated reports. The remaining ones (a device that arrives while the callback is being
/// registered) cannot be timed from outside, so the event is inserted where libusb's callback would insert it.
struct LibusbBusProbe {
    static void repeatEvent(LibusbBus& bus, BusEvent::Kind kind) {
        auto context = bus._core->_source->context();
        if (context == nullptr) REQUIRE(LibusbContext::create(context) == kIOReturnSuccess);
        libusb_device** devices = nullptr;
        const ssize_t count = libusb_get_device_list(context->get(), &devices);
        for (ssize_t i = 0; i < count; ++i) {
            if (libusb_get_device_address(devices[i]) != 4) continue;
            bus._core->_inbox->add({kind, keyOf(devices[i]), context, DeviceReference(devices[i]), nullptr});
        }
        libusb_free_device_list(devices, 1);
    }
};

} // namespace zul

using namespace zul;
using namespace std::chrono_literals;

namespace {

struct TimedMachine {
    SimulatedClock clock;
    MockMachine bench{&clock};
    void advance(Clock::Duration span) { clock.advance(bench.mainQueue, span); }
    /// Plugs the device and waits until the event was handled on the main queue.
    MockPrinter& plug(const Plug& plug) {
        MockPrinter& printer = bench.plug(plug);
        bench.mainQueue.waitForWork();
        bench.mainQueue.runPending();
        return printer;
    }
};

} // namespace

TEST_CASE("a bus that is started announces an attached printer before start returns") {
    MockMachine bench;
    bench.plug();
    bench.start();
    CHECK(bench.eventList() == "arrived 1-2");
}

TEST_CASE("a second start of a running bus announces no printer again") {
    MockMachine bench;
    bench.plug();
    bench.start();
    bench.start();
    CHECK(bench.eventList() == "arrived 1-2");
}

TEST_CASE("a printer that is plugged in while the bus runs is announced") {
    MockMachine bench;
    bench.start();
    CHECK(bench.events.empty());
    bench.plug();
    CHECK(bench.until([&] { return bench.eventList() == "arrived 1-2"; }));
}

TEST_CASE("a printer that is unplugged is terminated first and removed then") {
    MockMachine bench;
    bench.plug();
    bench.start();
    bench.unplug();
    CHECK(bench.until([&] { return bench.events.size() == 3; }));
    CHECK(bench.eventList() == "arrived 1-2, terminated 1-2, removed 1-2");
    CHECK(bench.registry.services().empty());
}

TEST_CASE("a printer that returns on the same port has a new token and the same location") {
    MockMachine bench;
    bench.plug();
    bench.start();
    const ServiceToken before = bench.token();
    std::uint32_t locationBefore = 0;
    REQUIRE(bench.service()->GetLocationID(locationBefore) == kIOReturnSuccess);
    bench.unplug();
    bench.plug({.address = 5});
    REQUIRE(bench.until([&] { return bench.events.size() == 4; }));
    CHECK(bench.eventList() == "arrived 1-2, terminated 1-2, removed 1-2, arrived 1-2");
    CHECK(bench.token() != before);
    std::uint32_t locationAfter = 0;
    REQUIRE(bench.service()->GetLocationID(locationAfter) == kIOReturnSuccess);
    CHECK(locationAfter == locationBefore);
    CHECK(bench.service()->nodePath() == "/dev/bus/usb/001/005");
}

TEST_CASE("an arrival and a departure that are queued together are announced in their order") {
    MockMachine bench;
    if (!bench.hasUdevd()) return; // a device that left before the bus has examined it is never known
    bench.start();
    bench.plug();
    bench.mainQueue.waitForWork();
    bench.leave();
    bench.plug({.port = "1-3", .address = 6});
    CHECK(bench.until([&] { return !bench.events.empty() && bench.events.back() == "arrived 1-3"; }));
    CHECK(bench.eventList() == "arrived 1-2, terminated 1-2, removed 1-2, arrived 1-3");
}

TEST_CASE("a printer that has left before its arrival was handled is never announced") {
    MockMachine bench;
    bench.start();
    bench.plug();
    bench.mainQueue.waitForWork();
    bench.unplug();
    bench.settle();
    CHECK(bench.events.empty());
}

TEST_CASE("a device that the system reports twice is announced once") {
    MockMachine bench;
    bench.plug();
    bench.start();
    bench.announceAgain();
    bench.settle();
    CHECK(bench.eventList() == "arrived 1-2");
}

TEST_CASE("a device that is both in the list at the start and in an event is announced once") {
    MockMachine bench;
    bench.plug();
    bench.start();
    LibusbBusProbe::repeatEvent(bench.bus, BusEvent::Kind::arrived);
    bench.settle();
    CHECK(bench.eventList() == "arrived 1-2");
}

TEST_CASE("a departure that is reported twice is announced once") {
    MockMachine bench;
    bench.plug();
    bench.start();
    LibusbBusProbe::repeatEvent(bench.bus, BusEvent::Kind::left);
    LibusbBusProbe::repeatEvent(bench.bus, BusEvent::Kind::left);
    bench.settle();
    CHECK(bench.eventList() == "arrived 1-2, terminated 1-2, removed 1-2");
}

TEST_CASE("the departure of a device that was never announced is not reported") {
    MockMachine bench;
    bench.plug({.interfaceClass = 3});
    bench.start();
    bench.unplug();
    bench.settle();
    CHECK(bench.events.empty());
}

TEST_CASE("a device without a printer interface is not a service") {
    MockMachine bench;
    bench.plug({.interfaceClass = 8});
    bench.start();
    CHECK(bench.registry.services().empty());
}

TEST_CASE("a printer interface of another subclass is a service that reports its subclass") {
    MockMachine bench;
    bench.plug({.interfaceSubClass = 2});
    bench.start();
    std::uint8_t subClass = 0;
    CHECK(bench.service()->GetInterfaceSubClass(subClass) == kIOReturnSuccess);
    CHECK(subClass == 2);
}

TEST_CASE("every printer interface of a device is a separate service") {
    MockMachine bench;
    bench.plug({.interfaces = 2});
    bench.start();
    CHECK(bench.eventList() == "arrived 1-2, arrived 1-2/1");
    bench.unplug();
    REQUIRE(bench.until([&] { return bench.events.size() == 6; }));
    CHECK(bench.eventList() ==
          "arrived 1-2, arrived 1-2/1, terminated 1-2, removed 1-2, terminated 1-2/1, removed 1-2/1");
}

TEST_CASE("alternate settings of one interface are one service") {
    MockMachine bench;
    bench.plug({.secondSetting = true});
    bench.start();
    CHECK(bench.eventList() == "arrived 1-2");
    std::uint8_t alternate = 9;
    CHECK(bench.service()->GetAlternateSetting(alternate) == kIOReturnSuccess);
    CHECK(alternate == 0);
}

TEST_CASE("a service returns descriptor values without opening the node") {
    MockMachine bench;
    bench.plug({.mode = 0});
    bench.start();
    const auto service = bench.service();
    std::uint8_t byte = 0;
    std::uint16_t word = 0;
    std::uint32_t location = 0;
    PipeProperties pipe;
    CHECK((service->GetInterfaceClass(byte) == kIOReturnSuccess && byte == 7));
    CHECK((service->GetInterfaceNumber(byte) == kIOReturnSuccess && byte == 0));
    CHECK((service->GetConfigurationValue(byte) == kIOReturnSuccess && byte == 1));
    CHECK((service->GetNumEndpoints(byte) == kIOReturnSuccess && byte == 2));
    CHECK((service->GetDeviceVendor(word) == kIOReturnSuccess && word == 0x2A71));
    CHECK((service->GetDeviceProduct(word) == kIOReturnSuccess && word == 3));
    CHECK((service->GetDeviceReleaseNumber(word) == kIOReturnSuccess && word == 0x0207));
    CHECK((service->GetLocationID(location) == kIOReturnSuccess && location == 0x01200000));
    REQUIRE(service->GetPipeProperties(kPipeIn, pipe) == kIOReturnSuccess);
    CHECK(pipe.direction == PipeDirection::in);
    CHECK(pipe.number == 1);
    CHECK(pipe.transferType == kUSBBulk);
    CHECK(pipe.maxPacketSize == kPacket);
    CHECK(service->GetPipeProperties(0, pipe) == kIOUSBUnknownPipeErr);
    CHECK(service->GetPipeProperties(3, pipe) == kIOUSBUnknownPipeErr);
    CHECK(service->locationText() == "1-2");
    CHECK(service->nodePath() == "/dev/bus/usb/001/004");
    CHECK_FALSE(service->isVirtual());
    CHECK(bench.nodeOpens() == 0);
}

TEST_CASE("a printer below a hub has one digit of its location for each port on the way") {
    MockMachine bench;
    bench.plug({.port = "1-2.4", .address = 7});
    bench.start();
    std::uint32_t location = 0;
    CHECK(bench.service()->GetLocationID(location) == kIOReturnSuccess);
    CHECK(location == 0x01240000);
    CHECK(bench.service()->locationText() == "1-2.4");
}

TEST_CASE("two ports of a root hub with more than fifteen of them have two locations") {
    MockMachine bench;
    bench.plug({.port = "1-1", .address = 7});
    bench.plug({.port = "1-17", .address = 8});
    bench.start();
    std::set<std::uint32_t> locations;
    for (const ServiceToken token : bench.registry.services()) {
        std::uint32_t location = 0;
        CHECK(bench.registry.service(token)->GetLocationID(location) == kIOReturnSuccess);
        locations.insert(location);
    }
    CHECK(locations == std::set<std::uint32_t>{0x01100000, 0x01100001});
}

TEST_CASE("a new printer whose node may not be opened is announced as soon as it may be") {
    TimedMachine timed;
    timed.bench.start();
    timed.plug({.mode = 0});
    timed.advance(500ms);
    CHECK(timed.bench.events.empty());
    timed.bench.setMode(4, 0644);
    timed.advance(100ms);
    CHECK(timed.bench.eventList() == "arrived 1-2");
}

TEST_CASE("a new printer whose node may not be opened for two seconds is announced then") {
    TimedMachine timed;
    timed.bench.start();
    timed.plug({.mode = 0});
    timed.advance(1999ms);
    CHECK(timed.bench.events.empty());
    timed.advance(1ms);
    CHECK(timed.bench.eventList() == "arrived 1-2");
}

TEST_CASE("a printer that is expected back from its update is waited for longer until its node may be opened") {
    TimedMachine timed;
    timed.bench.start();
    timed.bench.bus.setKept(0x01200000, true);
    timed.plug({.mode = 0});
    SUBCASE("its rights come late") {
        timed.advance(14s);
        CHECK(timed.bench.events.empty());
        timed.bench.setMode(4, 0644);
        timed.advance(100ms);
    }
    SUBCASE("its rights never come") {
        timed.advance(14'999ms);
        CHECK(timed.bench.events.empty());
        timed.advance(1ms);
    }
    CHECK(timed.bench.eventList() == "arrived 1-2");
}

TEST_CASE("a printer that leaves while its node may not be opened is never announced") {
    TimedMachine timed;
    timed.bench.start();
    timed.plug({.mode = 0});
    timed.bench.unplug();
    timed.bench.mainQueue.waitForWork();
    timed.advance(5s);
    CHECK(timed.bench.events.empty());
    CHECK(timed.bench.registry.services().empty());
}

TEST_CASE("a printer attached before the start is announced at once even when its node may not be opened") {
    TimedMachine timed;
    timed.bench.plug({.mode = 0});
    timed.bench.start();
    CHECK(timed.bench.eventList() == "arrived 1-2");
}

TEST_CASE("a printer that is reported before it is configured is announced when it is") {
    TimedMachine timed;
    timed.bench.start();
    timed.plug({.configuration = ""});
    timed.advance(300ms);
    CHECK(timed.bench.events.empty());
    timed.bench.configure("1-2", "1");
    timed.advance(100ms);
    CHECK(timed.bench.eventList() == "arrived 1-2");
}

TEST_CASE("a printer that is configured long after its arrival is announced then") {
    TimedMachine timed;
    timed.bench.start();
    timed.plug({.configuration = ""});
    timed.advance(10s);
    CHECK(timed.bench.events.empty());
    timed.bench.configure("1-2", "1");
    timed.advance(2s);
    CHECK(timed.bench.eventList() == "arrived 1-2");
}

TEST_CASE("a device that is never configured is not a service") {
    TimedMachine timed;
    timed.bench.start();
    timed.plug({.configuration = ""});
    timed.advance(5s);
    CHECK(timed.bench.events.empty());
}

TEST_CASE("a stopped bus reports no more events, not even queued ones") {
    MockMachine bench;
    bench.start();
    bench.plug();
    bench.mainQueue.waitForWork();
    bench.bus.stop();
    bench.plug({.port = "1-3", .address = 6});
    bench.mainQueue.runPending();
    CHECK(bench.events.empty());
}

TEST_CASE("a stopped bus that is started again announces what is attached") {
    MockMachine bench;
    bench.plug();
    bench.start();
    bench.bus.stop();
    bench.registry.serviceTerminated(bench.token());
    bench.events.clear();
    bench.start();
    CHECK(bench.eventList() == "arrived 1-2");
}
