// A printer that did not report its device ID has no command queue, so every exchange with it blocks the main queue.
#include "PrinterBench.h"
#include "RecordedEvents.h"

using namespace zul;
using namespace zul::test;
using namespace std::chrono_literals;

namespace {

using Calls = std::vector<std::string>;

struct Attached : PrinterBench {
    Attached() {
        environment.events = &events;
        handle->locationID = 0x01100000;
        handle->answerByDefault();
        controller = std::make_shared<TBPrinters>(environment, TBPrinters::Outlets{});
        controller->init();
    }
    ~Attached() { controller.reset(); }
    DeviceInfoPtr known() { return TBUSBPrinter::deviceInfoForKey("2A71000301100000"); }
    void knownWithProgress(std::int64_t progress) { known()->set(HOLVEN_TBPrinterDeviceFirmwareStatus, progress); }
    /// The controller's work for an arrival, in one block of the main queue; returns its duration.
    Clock::Duration attach() {
        const auto begin = clock.now();
        printer = std::make_shared<TBUSBPrinterZUL>(environment);
        printer->setLocationText("1-1");
        printer->initWithInterfaceInterface(handle, 7);
        controller->addPrinter(printer);
        return clock.now() - begin;
    }
    /// A write whose reply comes at once.
    void answerTo(const std::string& body) {
        handle->expectWritePipeTO(1, [](const Data&) { return true; }).during([this, body] { reply(body); });
    }
    /// A write whose reply does not come within the time-out.
    void noAnswer() {
        handle->expectWritePipeTO(1, [](const Data&) { return true; });
        handle->expectReadPipeTO(2, {}, kIOUSBTransactionTimeout).during([this] { clock.sleepFor(5s); });
    }

    RecordedEvents events;
    std::shared_ptr<TBPrinters> controller;
};

} // namespace

TEST_CASE("a printer that does not report its device ID is reported by its location, in the log and as an event") {
    Attached bench;
    bench.attach();
    CHECK(bench.log.hasLogged("the printer at 1-1 did not report its device ID"));
    CHECK(bench.events.count<events::IdentityMissing>() == 1);
    CHECK(bench.printer->printerCommandQueue() == nullptr);
}

TEST_CASE("a printer that reports its device ID is not reported as one without") {
    Attached bench;
    bench.handle->setDeviceID("MFG:ZUL;MDL:VK14;SERN:1;");
    bench.attach();
    bench.settle();
    CHECK(bench.events.count<events::IdentityMissing>() == 0);
}

TEST_CASE("the first missing reply ends the round of queries, and is not repeated") {
    Attached bench;
    bench.answerTo("00000\r");
    bench.answerTo("VK14 01.60\r");
    bench.noAnswer();
    CHECK(bench.attach() == 5s);
    CHECK(bench.commands() == Calls{"STATUS", "INFO  FVER", "MNT_RDCOUNTER_LIFE"});
    CHECK(bench.handle->count("resynchronize") == 0);
    CHECK_FALSE(bench.events.all<events::QuestionsEnded>().back().isComplete);
    CHECK(bench.printer->firmwareVersion() == "VK14 01.60");
}

TEST_CASE("the probe of a known printer and the queries of the controller are one round") {
    Attached bench;
    bench.known()->set(HOLVEN_TBPrinterManufacturer, std::string("ZUL"));
    bench.noAnswer();
    CHECK(bench.attach() == 5s);
    CHECK(bench.commands() == Calls{"STATUS"});
}

TEST_CASE("a known printer that replies is queried for its status, and twice for its device info, like any other") {
    Attached bench;
    bench.known()->set(HOLVEN_TBPrinterManufacturer, std::string("ZUL"));
    bench.answerTo("00000\r");
    for (int round = 0; round < 2; ++round) {
        for (const char* body : {"00000\r", "VK14 01.60\r", "CL0000042\r", "0160\r", "1F2E\r", "000001\r"}) {
            bench.answerTo(body);
        }
    }
    CHECK(bench.attach() == 0s);
    CHECK(bench.commands().size() == 13);
    CHECK(bench.events.all<events::QuestionsEnded>().back().isComplete);
}

TEST_CASE("a refused write is not waited for a second time") {
    Attached bench;
    bench.handle->expectWritePipeTO(1, [](const Data&) { return true; }).returns(kIOUSBTransactionTimeout).during([&] {
        bench.clock.sleepFor(5s);
    });
    CHECK(bench.attach() == 5s);
    CHECK(bench.handle->count("ReadPipeTO") == 0);
    CHECK(bench.events.count<events::ReplyMissing>() == 1);
}

TEST_CASE("slow replies end the round after the time of one time-out") {
    Attached bench;
    const auto slow = [&](const std::string& body) {
        bench.handle->expectWritePipeTO(1, [](const Data&) { return true; }).during([&bench, body] {
            bench.clock.sleepFor(3s);
            bench.reply(body);
        });
    };
    slow("00000\r");
    slow("VK14 01.60\r");
    CHECK(bench.attach() == 6s);
    CHECK(bench.commands() == Calls{"STATUS", "INFO  FVER"});
}

TEST_CASE("a later round queries again, after dropping a late reply") {
    Attached bench;
    bench.noAnswer();
    bench.attach();
    bench.settle();
    bench.handle->clearJournal();
    bench.clock.advance(bench.mainQueue, 10s);
    for (const char* body : {"00000\r", "VK14 01.60\r", "CL0000042\r", "0160\r", "1F2E\r", "000001\r"}) {
        bench.answerTo(body);
    }
    bench.printer->updateInfo();
    CHECK(bench.handle->count("resynchronize") == 1);
    CHECK(bench.commands().size() == 6);
    CHECK(bench.printer->printerSerialNumber() == "000001");
}

TEST_CASE("a loader that was expected is queried for its status at once") {
    Attached bench;
    bench.knownWithProgress(1);
    SUBCASE("and gets its image, if there is one") {
        bench.answerTo("FU00001\r");
        bench.answerTo("FU00001\r");
        CHECK(bench.attach() == 0s);
        CHECK(bench.commands() == Calls{"STATUS", "STATUS"}); // this bench has no firmware files
        CHECK(bench.log.has("failed to verify firmware archive"));
    }
    SUBCASE("and gets no image if it does not reply") {
        bench.noAnswer();
        CHECK(bench.attach() == 5s);
        CHECK(bench.commands() == Calls{"STATUS"});
        CHECK_FALSE(bench.log.has("failed to verify firmware archive"));
    }
    bench.settle();
    CHECK(bench.printer->inFirmwareUpdate());
}

TEST_CASE("new firmware is queried for its version, but neither waited for nor given tables") {
    Attached bench;
    bench.knownWithProgress(2);
    bench.known()->set(HOLVEN_TBPrinterFirmwareVersionPrevious, std::string("VK14 01.60"));
    bench.answerTo("VK14 01.61\r");
    bench.noAnswer();
    CHECK(bench.attach() == 5s);
    bench.settle();
    CHECK(bench.commands() == Calls{"INFO  FVER", "STATUS"}); // the status is the controller's query
    CHECK(bench.log.hasLogged("firmware version changed from VK14 01.60 to VK14 01.61"));
    CHECK(bench.log.has("the color tables of the printer at 1-1 are not written: it did not report its device ID"));
    CHECK(bench.printer->deviceInfoDict()->integer(HOLVEN_TBPrinterDeviceFirmwareStatus) == 2);
    CHECK(bench.events.count<events::UpdateReported>() == 0);
}

TEST_CASE("the intermediate firmware of a VK-RZ7 does not block the main queue either") {
    Attached bench;
    bench.handle->product = 5;
    TBUSBPrinter::deviceInfoForKey("2A71000501100000")->set(HOLVEN_TBPrinterDeviceFirmwareStatus, std::int64_t{2});
    bench.answerTo("RZ7_ALLFWU_2.05\r");
    bench.noAnswer();
    CHECK(bench.attach() == 5s);
}

TEST_CASE("a finished update is cleared for a printer without a queue, too") {
    Attached bench;
    bench.knownWithProgress(3);
    for (const char* body : {"VK14 01.61\r", "00000\r", "VK14 01.61\r", "CL0000042\r", "0161\r", "1F2E\r", "000001\r",
                             "00000\r", "VK14 01.61\r", "CL0000042\r", "0161\r", "1F2E\r", "000001\r"}) {
        bench.answerTo(body);
    }
    CHECK(bench.attach() == 0s);
    bench.settle();
    CHECK_FALSE(bench.printer->deviceInfoDict()->integer(HOLVEN_TBPrinterDeviceFirmwareStatus));
    CHECK_FALSE(bench.printer->inFirmwareUpdate());
}
