// Device IDs are read before a printer is announced.
#include "MockMachine.h"
#include "FakeReservations.h"
#include "support/LogCapture.h"
#include "support/SimulatedClock.h"

#include <algorithm>
#include <cerrno>
#include <mutex>

using namespace zul;
using namespace std::chrono_literals;

namespace {

constexpr const char* kKey = "2A71000301200000";
const std::string kDeviceID{"\0\x10MFG:Z;MDL:VK;", 16};

LibusbBusOptions ours(FakeReservations* reservations = nullptr) {
    LibusbBusOptions options;
    options.reservations = reservations;
    options.readsIdentityAhead = [](std::uint16_t vendor, std::uint16_t product) {
        return vendor == 0x2A71 && product == 3;
    };
    return options;
}

struct Asked {
    IOReturn code = kIOReturnSuccess;
    std::string reply;
};

// The engine's request.
Asked askDeviceID(IOUSBInterfaceInterface& handle, std::uint16_t length = 65535, std::uint16_t index = 0) {
    std::vector<char> buffer(length);
    IOUSBDevRequestTO request{.bmRequestType = 0xA1, .bRequest = 0, .wIndex = index, .wLength = length};
    request.pData = buffer.data();
    request.noDataTimeout = request.completionTimeout = 100;
    Asked asked;
    asked.code = handle.ControlRequestTO(0, request);
    asked.reply.assign(buffer.data(), request.wLenDone);
    return asked;
}

struct Reader {
    FakeReservations reservations;
    SimulatedClock clock;
    MockMachine bench{&clock, ours(&reservations)};

    void advance(Clock::Duration span) { clock.advance(bench.mainQueue, span); }
    /// Waits until the arrival was handled.
    void handleArrival() {
        bench.mainQueue.waitForWork();
        clock.settle(bench.mainQueue);
    }
    static int requests(MockPrinter& printer) {
        return static_cast<int>(std::ranges::count(printer.journal(), "control a1 00 0000 0000 4096"));
    }
};

// The machine's own clock, but no wait times out before the awaited event: for printers that reply in time, on however
// busy a machine.
class PatientClock final : public Clock {
  public:
    TimePoint now() override { return _real.now(); }
    std::chrono::system_clock::time_point wallTime() override { return _real.wallTime(); }
    void sleepFor(Duration duration) override { _real.sleepFor(duration); }
    std::unique_ptr<ClockEvent> makeEvent() override { return std::make_unique<Event>(_real.makeEvent(), *this); }
    TimerId callAt(TimePoint time, Block block) override { return _real.callAt(time, std::move(block)); }
    void cancel(TimerId timer) override { _real.cancel(timer); }

  private:
    struct Event final : ClockEvent {
        Event(std::unique_ptr<ClockEvent> waited, Clock& itsClock) : event(std::move(waited)), clock(itsClock) {}
        bool waitUntil(TimePoint) override { return event->waitUntil(clock.now() + 60s); }
        void signal() override { event->signal(); }
        const std::unique_ptr<ClockEvent> event;
        Clock& clock;
    };
    RealClock _real;
};

} // namespace

TEST_CASE("printers that return their device IDs are announced before start returns, sorted by location") {
    PatientClock clock;
    MockMachine bench{&clock, ours()};
    bench.plug({.port = "1-2", .address = 4}).answersControl(kDeviceID);
    bench.plug({.port = "1-3", .address = 5}).answersControl(kDeviceID);
    bench.plug({.port = "1-4", .address = 6}).answersControl(kDeviceID);
    bench.start();
    CHECK(bench.eventList() == "arrived 1-2, arrived 1-3, arrived 1-4");
    CHECK_FALSE(bench.bus.hasPending());
}

TEST_CASE("the engine's request for a device ID is answered from the cache each time") {
    Reader reader;
    MockPrinter& printer = reader.bench.plug();
    printer.answersControl(kDeviceID);
    reader.bench.start();
    reader.clock.settle(reader.bench.mainQueue);
    const auto handle = reader.bench.handle();
    for (int i = 0; i < 2; ++i) {
        const Asked asked = askDeviceID(*handle);
        CHECK(asked.code == kIOReturnSuccess);
        CHECK(asked.reply == kDeviceID);
    }
    CHECK(askDeviceID(*handle, 5).reply == kDeviceID.substr(0, 5));
    CHECK(Reader::requests(printer) == 1);
}

TEST_CASE("any other control request is sent to the printer") {
    Reader reader;
    MockPrinter& printer = reader.bench.plug();
    printer.answersControl(kDeviceID);
    reader.bench.start();
    reader.clock.settle(reader.bench.mainQueue);
    const auto handle = reader.bench.handle();
    printer.answersControl("other");
    CHECK(askDeviceID(*handle, 64, 0x0100).reply == "other"); // of another interface
    printer.answersControl("x");
    std::array<char, 8> buffer{};
    IOUSBDevRequestTO request{.bmRequestType = 0xA1, .bRequest = 1, .wLength = 1, .pData = buffer.data()};
    CHECK(handle->ControlRequestTO(0, request) == kIOReturnSuccess);
    CHECK(buffer[0] == 'x');
}

TEST_CASE("a device ID returned only to the second request is used") {
    for (const int status : {MockPrinter::kNeverEnds, -EPIPE}) { // late, or refused once
        CAPTURE(status);
        Reader reader;
        reader.bench.start();
        MockPrinter& printer = reader.bench.plug();
        printer.answersControl("", status);
        printer.answersControl(kDeviceID);
        reader.handleArrival();
        CHECK(reader.bench.events.empty());
        reader.advance(250ms);
        CHECK(reader.bench.eventList() == "arrived 1-2");
        CHECK(askDeviceID(*reader.bench.handle()).reply == kDeviceID);
    }
}

TEST_CASE("a device ID without text is requested again") {
    const std::string noText[] = {"", std::string("\0", 1), std::string("\0\0", 2), std::string("\0\x02", 2),
                                  std::string("\0\x02old", 5)};
    for (const std::string& reply : noText) {
        CAPTURE(reply);
        Reader reader;
        reader.bench.start();
        MockPrinter& printer = reader.bench.plug();
        printer.answersControl(reply);
        printer.answersControl(kDeviceID);
        reader.handleArrival();
        CHECK(reader.bench.events.empty());
        reader.advance(250ms);
        CHECK(askDeviceID(*reader.bench.handle()).reply == kDeviceID);
    }
}

TEST_CASE("a printer with only an empty device ID is announced with it after three seconds") {
    Reader reader;
    reader.bench.start();
    MockPrinter& printer = reader.bench.plug();
    printer.answersControl(std::string("\0\x02", 2));
    printer.stallsControl();
    reader.handleArrival();
    reader.advance(3s);
    REQUIRE(reader.bench.eventList() == "arrived 1-2");
    CHECK(askDeviceID(*reader.bench.handle()).reply == std::string("\0\x02", 2));
}

TEST_CASE("a printer that never answers the request for its device ID is announced after three seconds, and its "
          "request fails at once") {
    LogCapture log;
    Reader reader;
    reader.bench.start();
    MockPrinter& printer = reader.bench.plug();
    printer.stallsControl();
    reader.handleArrival();
    reader.advance(2s);
    CHECK(reader.bench.events.empty());
    reader.advance(1s);
    CHECK(reader.bench.eventList() == "arrived 1-2");
    const int asked = Reader::requests(printer);
    CHECK(asked >= 10);
    CHECK(askDeviceID(*reader.bench.handle()).code == kIOUSBTransactionTimeout);
    CHECK(Reader::requests(printer) == asked);
    CHECK(log.times("the printer at 1-2 does not answer the request for its device ID") == 1);
}

TEST_CASE("printers without a device ID block neither start nor the main queue, and all are waited for at the same "
          "time") {
    Reader reader;
    for (unsigned i = 0; i < 4; ++i)
        reader.bench.plug({.port = "1-" + std::to_string(2 + i), .address = 4 + i}).stallsControl();
    const auto began = reader.clock.now();
    reader.bench.start();
    CHECK(reader.clock.now() - began <= 100ms);
    CHECK(reader.bench.events.empty());
    CHECK(reader.bench.bus.hasPending());
    int enumerated = 0;
    reader.bench.bus.whenEnumerated([&] { ++enumerated; });
    CHECK(enumerated == 0);
    reader.advance(3s);
    CHECK(reader.bench.events.size() == 4);
    CHECK(enumerated == 1);
    CHECK_FALSE(reader.bench.bus.hasPending());
    reader.bench.bus.whenEnumerated([&] { ++enumerated; });
    CHECK(enumerated == 2);
}

TEST_CASE("a printer detached while its device ID is requested is never announced and no longer waited for") {
    Reader reader;
    reader.bench.plug().stallsControl();
    reader.bench.start();
    reader.clock.settle(reader.bench.mainQueue); // one request was sent
    int enumerated = 0;
    reader.bench.bus.whenEnumerated([&] { ++enumerated; });
    reader.bench.unplug();
    reader.bench.mainQueue.waitForWork();
    reader.advance(5s);
    CHECK(reader.bench.events.empty());
    CHECK(enumerated == 1);
    CHECK(reader.bench.nodeOpens() == 0);
}

TEST_CASE("a printer that leaves and returns while its device ID is requested is announced once") {
    Reader reader;
    reader.bench.start();
    reader.bench.plug().stallsControl();
    reader.handleArrival();
    reader.bench.unplug();
    reader.bench.mainQueue.waitForWork();
    reader.bench.plug({.address = 5}).answersControl(kDeviceID);
    REQUIRE(reader.bench.until([&] { return !reader.bench.events.empty(); }));
    reader.advance(5s);
    CHECK(reader.bench.eventList() == "arrived 1-2");
    CHECK(reader.bench.service()->nodePath() == "/dev/bus/usb/001/005");
}

TEST_CASE("a printer that arrives later is announced first if an earlier one does not reply") {
    Reader reader;
    reader.bench.start();
    reader.bench.plug().stallsControl();
    reader.handleArrival();
    reader.bench.plug({.port = "1-3", .address = 5}).answersControl(kDeviceID);
    REQUIRE(reader.bench.until([&] { return !reader.bench.events.empty(); }));
    reader.advance(3s);
    CHECK(reader.bench.eventList() == "arrived 1-3, arrived 1-2");
}

TEST_CASE("the device IDs of two interfaces are read and distinguished") {
    Reader reader;
    MockPrinter& printer = reader.bench.plug({.interfaces = 2});
    printer.answersControl(kDeviceID);
    printer.answersControl(std::string("\0\x05two", 5));
    reader.bench.start();
    reader.clock.settle(reader.bench.mainQueue);
    CHECK(askDeviceID(*reader.bench.handle(0)).reply == kDeviceID);
    CHECK(askDeviceID(*reader.bench.handle(1), 64, 0x0100).reply == std::string("\0\x05two", 5));
}

TEST_CASE("after a re-enumeration in place the device ID is read again, and the departure is reported first") {
    Reader reader;
    MockPrinter& printer = reader.bench.plug();
    printer.answersControl(kDeviceID);
    reader.bench.start();
    reader.clock.settle(reader.bench.mainQueue);
    std::shared_ptr<IOUSBDeviceInterface> device;
    REQUIRE(reader.bench.handle()->GetDevice(device) == kIOReturnSuccess);
    printer.answersControl(std::string("\0\x05new", 5));
    REQUIRE(device->USBDeviceReEnumerate(0) == kIOReturnSuccess);
    REQUIRE(reader.bench.until([&] { return reader.bench.events.size() == 4; }));
    CHECK(reader.bench.eventList() == "arrived 1-2, terminated 1-2, removed 1-2, arrived 1-2");
    CHECK(askDeviceID(*reader.bench.handle()).reply == std::string("\0\x05new", 5));
}

TEST_CASE("the node of another vendor's printer is not opened before it is announced") {
    Reader reader;
    MockPrinter& printer = reader.bench.plug({.product = 99});
    reader.bench.start();
    CHECK(reader.bench.eventList() == "arrived 1-2");
    CHECK(printer.journal().empty());
    CHECK(reader.bench.nodeOpens() == 0);
}

TEST_CASE("a printer reserved by another process of this product is announced without a request") {
    Reader reader;
    MockPrinter& printer = reader.bench.plug();
    reader.reservations.reserve(kKey);
    reader.bench.start();
    reader.clock.settle(reader.bench.mainQueue);
    CHECK(reader.bench.eventList() == "arrived 1-2");
    CHECK(printer.journal().empty());
    CHECK(reader.bench.nodeOpens() == 0);
}

TEST_CASE("a printer whose node may not be opened is announced without its device ID") {
    Reader reader;
    reader.bench.plug({.mode = 0});
    reader.bench.start();
    reader.clock.settle(reader.bench.mainQueue);
    CHECK(reader.bench.eventList() == "arrived 1-2");
}

TEST_CASE("the node is closed again if no handle is created") {
    Reader reader;
    reader.bench.plug().answersControl(kDeviceID);
    reader.bench.start();
    reader.clock.settle(reader.bench.mainQueue);
    REQUIRE(reader.bench.eventList() == "arrived 1-2");
    CHECK(reader.bench.until([&] { return reader.bench.nodeOpens() == 0; }));
}

TEST_CASE("a bus that stops while device IDs are requested reports no more events") {
    Reader reader;
    reader.bench.plug().stallsControl();
    reader.bench.start();
    int enumerated = 0;
    reader.bench.bus.whenEnumerated([&] { ++enumerated; });
    reader.bench.bus.stop();
    reader.advance(5s);
    CHECK(reader.bench.events.empty());
    CHECK(enumerated == 0);
    CHECK_FALSE(reader.bench.bus.hasPending());
}

TEST_CASE("waiting for a bus that is not running returns at once") {
    Reader reader;
    int enumerated = 0;
    reader.bench.bus.whenEnumerated([&] { ++enumerated; });
    CHECK(enumerated == 1);
}
