// Another program holds the printer: what keeps the wait for it going, what ends it, and what follows its release.
#include "PrinterBench.h"
#include "RecordedEvents.h"

using namespace zul;
using namespace zul::test;

namespace {

const std::string kClosedMessage = "kIOMessageServiceWasClosed(e0000110)";

struct Held : PrinterBench {
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

TEST_CASE("a refused open reports the process that holds the printer, and other opens report none") {
    PrinterBench bench;
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

TEST_CASE("a retry that fails with another code does not end the wait for the printer") {
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

TEST_CASE("a hint during an open is handled after that open was refused") {
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

TEST_CASE("a close requested before another program claimed the printer does not end the wait for it") {
    PrinterBench bench;
    bench.printerWithQueue();
    std::optional<IOReturn> closed;
    bench.printer->performInlineOnCommandQueue([&] {
        bench.printer->assertOnCommandQueue();
        // Queued while the interface was open; before it runs, the printer is closed, claimed and refused.
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
    CHECK(bench.commands() == std::vector<std::string>{"STATUS", "STATUS"}); // queried, and repeated without a reply
}

TEST_CASE("a close requested during the wait ends it") {
    Held bench;
    bench.printer->closeInterface(nullptr);
    bench.settle();
    CHECK(bench.printer->ownership() == Ownership::none);
    CHECK_FALSE(bench.handle->isWatched());
    bench.release();
    bench.hint();
    CHECK(bench.log.times(kClosedMessage) == 0);
}

TEST_CASE("claiming a held printer closes first, replays the attempt in the closed state, and keeps waiting") {
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
    CHECK(bench.printer->status() == "USB Busy"); // a closed printer shows the message so
    CHECK(bench.handle->count("USBInterfaceOpenSeize") == 0);
    CHECK(bench.handle->isWatched());
    bench.release();
    bench.hint();
    CHECK(bench.log.times(kClosedMessage) == 1);
    CHECK(bench.handle->count("USBInterfaceOpenSeize") == 1);
    CHECK(bench.commands().front() == "STATUS");
}

TEST_CASE("releasing a printer that was claimed while it was held ends the wait") {
    Held bench;
    bench.printer->setIsOwned(1);
    bench.settle();
    bench.printer->setIsOwned(0);
    bench.settle();
    CHECK_FALSE(bench.handle->isWatched());
    CHECK(bench.printer->ownership() == Ownership::none);
}

TEST_CASE("any successful open ends the wait") {
    Held bench;
    bench.release();
    bench.open();
    CHECK(bench.printer->ownership() == Ownership::thisProgram);
    CHECK_FALSE(bench.handle->isWatched());
    bench.hint();
    CHECK(bench.log.times(kClosedMessage) == 0);
}

TEST_CASE("an update that found its printer held continues after any successful open, and only once") {
    PrinterBench bench;
    bench.handle->locationID = 0x01100000;
    TBUSBPrinter::deviceInfoForKey("2A71000301100000")->set(HOLVEN_TBPrinterDeviceFirmwareStatus, std::int64_t{3});
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnExclusiveAccess);
    bench.printerWithQueue();
    const std::string probed = "found a device finished with firmware update";
    REQUIRE_FALSE(bench.log.has(probed));
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnSuccess);
    bench.printer->openInterface(nullptr); // for example a user's request, before the hint
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
    PrinterBench bench;
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
