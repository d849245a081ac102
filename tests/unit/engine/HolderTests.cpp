// Another program on the printer: what keeps the wait for it alive, what ends it, and what follows its release.
#include "Bench.h"
#include "RecordedEvents.h"

using namespace zul;
using namespace zul::test;

namespace {

const std::string kClosedMessage = "kIOMessageServiceWasClosed(e0000110)";

struct Held : Bench {
    Held() {
        environment.events = &events;
        printerWithQueue();
        refuse();
        open();
        REQUIRE(printer->ownership() == Ownership::otherProgram);
        handle->clearJournal();
    }
    void refuse(IOReturn code = kIOReturnExclusiveAccess) {
        handle->setAnswer("USBInterfaceOpenSeize", code);
        handle->setAnswer("tryClaim", code);
    }
    void release() { refuse(kIOReturnSuccess); }
    void open() {
        printer->openInterface(nullptr);
        settle();
    }
    void hint() {
        handle->holderMayBeFree();
        settle();
    }

    RecordedEvents events;
};

} // namespace

TEST_CASE("a refused open reports which process holds the printer, and other opens report none") {
    Bench bench;
    RecordedEvents events;
    bench.environment.events = &events;
    bench.handle->interfaceHolder = {.kind = InterfaceHolder::Kind::process, .program = "cupsd", .pid = 42};
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnExclusiveAccess);
    bench.printerWithQueue();
    REQUIRE(events.count<events::Opened>() == 1);
    CHECK(events.all<events::Opened>().back().code == kIOReturnExclusiveAccess);
    CHECK(events.all<events::Opened>().back().holder == bench.handle->interfaceHolder);
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnSuccess);
    bench.printer->openInterface(nullptr);
    bench.settle();
    CHECK(events.all<events::Opened>().back().holder == std::nullopt);
    CHECK(bench.handle->count("holder") == 1);
}

TEST_CASE("a retry that fails with another code is a retry: the printer is still waited for") {
    Held bench;
    bench.release();
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnNotResponding);
    bench.hint();
    CHECK(bench.log.times(kClosedMessage) == 1);
    CHECK(bench.printer->ownership() == Ownership::otherProgram);
    CHECK(bench.handle->isWatched());
    bench.release();
    bench.hint();
    CHECK(bench.log.times(kClosedMessage) == 2);
    CHECK(bench.printer->ownership() == Ownership::none);
    CHECK(bench.printer->state() == kTBPrinterClosed);
    CHECK(bench.commands().front() == "STATUS");
    CHECK_FALSE(bench.handle->isWatched());
}

TEST_CASE("a retry that is refused again waits again") {
    Held bench;
    bench.handle->setAnswer("tryClaim", kIOReturnSuccess); // free for a moment
    bench.hint();
    CHECK(bench.handle->count("USBInterfaceOpenSeize") == 1);
    CHECK(bench.handle->isWatched());
    bench.release();
    bench.hint();
    CHECK(bench.printer->ownership() == Ownership::none);
    CHECK(bench.commands().front() == "STATUS");
}

TEST_CASE("a hint that comes while an open is under way is answered when that open has been refused") {
    Held bench;
    bench.handle->expect("USBInterfaceOpenSeize").returns(kIOReturnExclusiveAccess).during([&] {
        bench.handle->setAnswer("tryClaim", kIOReturnSuccess);
        bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnSuccess);
        bench.mainQueue.async([&] { bench.handle->holderMayBeFree(); });
    });
    bench.open();
    CHECK(bench.log.times(kClosedMessage) == 1);
    CHECK(bench.printer->ownership() == Ownership::none);
}

TEST_CASE("a close that was asked for before another program took the printer does not end the wait for it") {
    Bench bench;
    bench.printerWithQueue();
    std::optional<IOReturn> closed;
    bench.printer->performInlineOnCommandQueue([&] {
        bench.printer->assertOnCommandQueue();
        // Queued by somebody who had it open; before it runs the printer is closed, taken and refused.
        bench.printer->closeInterface([&](IOReturn code) { closed = code; });
        bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnExclusiveAccess);
        static_cast<void>(bench.printer->openInterface());
    });
    bench.settle();
    CHECK(closed == kIOReturnSuccess);
    CHECK(bench.printer->ownership() == Ownership::otherProgram);
    CHECK(bench.printer->state() == kTBPrinterOpening);
    CHECK(bench.handle->isWatched());
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnSuccess);
    bench.handle->holderMayBeFree();
    bench.settle();
    CHECK(bench.commands() ==
          std::vector<std::string>{"STATUS", "STATUS"}); // asked, and once more for want of an answer
}

TEST_CASE("a close that is asked for during the wait ends it") {
    Held bench;
    bench.printer->closeInterface(nullptr);
    bench.settle();
    CHECK(bench.printer->ownership() == Ownership::none);
    CHECK_FALSE(bench.handle->isWatched());
    bench.release();
    bench.hint();
    CHECK(bench.log.times(kClosedMessage) == 0);
}

TEST_CASE("taking a held printer closes first, replays the attempt in the closed state, and keeps waiting") {
    Held bench;
    std::optional<Ownership> nextJob;
    bench.printer->setIsOwned(1);
    bench.printer->performInlineOnCommandQueue([&] {
        nextJob = bench.printer->ownership();
        CHECK(bench.log.times("kIOMessageServiceIsAttemptingOpen(e0000101)") == 1); // delivered before this job
    });
    bench.settle();
    CHECK(nextJob == Ownership::none);
    CHECK(bench.printer->state() == kTBPrinterClosed);
    CHECK(bench.printer->status() == "USB Busy"); // as a closed printer shows the message
    CHECK(bench.handle->count("USBInterfaceOpenSeize") == 0);
    CHECK(bench.handle->isWatched());
    bench.release();
    bench.hint();
    CHECK(bench.log.times(kClosedMessage) == 1);
    CHECK(bench.handle->count("USBInterfaceOpenSeize") == 1);
    CHECK(bench.commands().front() == "STATUS");
}

TEST_CASE("giving up a printer that was taken while it was held ends the wait") {
    Held bench;
    bench.printer->setIsOwned(1);
    bench.settle();
    bench.printer->setIsOwned(0);
    bench.settle();
    CHECK_FALSE(bench.handle->isWatched());
    CHECK(bench.printer->ownership() == Ownership::none);
}

TEST_CASE("an open that succeeds ends the wait, whoever asked for it") {
    Held bench;
    bench.release();
    bench.open();
    CHECK(bench.printer->ownership() == Ownership::thisProgram);
    CHECK_FALSE(bench.handle->isWatched());
    bench.hint();
    CHECK(bench.log.times(kClosedMessage) == 0);
}

TEST_CASE("an update that found its printer held goes on when any open succeeds, and only once") {
    Bench bench;
    bench.handle->locationID = 0x01100000;
    TBUSBPrinter::deviceInfoForKey("2A71000301100000")->set(HOLVEN_TBPrinterDeviceFirmwareStatus, std::int64_t{3});
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnExclusiveAccess);
    bench.printerWithQueue();
    const std::string probed = "found a device finished with firmware update";
    REQUIRE_FALSE(bench.log.has(probed));
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnSuccess);
    bench.printer->openInterface(nullptr); // a person's request, say, before the hint comes
    bench.settle();
    CHECK(bench.log.times(probed) == 1);
    CHECK_FALSE(bench.printer->deviceInfoDict()->integer(HOLVEN_TBPrinterDeviceFirmwareStatus));
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnExclusiveAccess);
    bench.printer->openInterface(nullptr);
    bench.settle();
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnSuccess);
    bench.handle->holderMayBeFree();
    bench.settle();
    CHECK(bench.log.times(probed) == 1);
}

TEST_CASE("a printer without a queue is waited for, too") {
    Bench bench;
    bench.inlinePrinter();
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnExclusiveAccess);
    bench.printer->openInterface(nullptr);
    bench.printer->setIsOwned(1);
    CHECK(bench.printer->ownership() == Ownership::none);
    CHECK(bench.log.has("kIOMessageServiceIsAttemptingOpen(e0000101)"));
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnSuccess);
    bench.handle->holderMayBeFree();
    bench.settle();
    CHECK(bench.log.times(kClosedMessage) == 1);
    CHECK(bench.commands() == std::vector<std::string>{"STATUS"});
}
