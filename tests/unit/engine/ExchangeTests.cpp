// Missing replies, and replies that cannot belong to their queries: which queries are repeated, which are not, and
// which reply is used in the end.
#include "PrinterBench.h"
#include "RecordedEvents.h"

using namespace zul;
using namespace zul::test;
using namespace std::chrono_literals;

namespace {

const std::string kOutOfStep = "the printer's answers were out of step; they have been put in step again";
const std::string kUnusable = "does not answer as it should; switch it off and on if that stays so";

using Calls = std::vector<std::string>;

struct Asked : PrinterBench {
    explicit Asked(std::uint16_t product = 3) {
        environment.events = &events;
        handle->product = product;
        printerWithQueue();
        onQueue([this] { static_cast<void>(printer->openInterface()); });
        handle->clearJournal();
        log.systemLog.clear();
    }
    /// Runs work on the command queue.
    template <class Work> void onQueue(Work work) {
        printer->performInlineOnCommandQueue([this, work] {
            printer->assertOnCommandQueue();
            work();
        });
        settle();
    }
    /// The reply after the pipe was drained; nullopt for none.
    void answersAgain(const std::optional<std::string>& body) {
        handle->expect("resynchronize");
        handle->expectWritePipeTO(1, [](const Data&) { return true; }).during([this, body] {
            if (body) reply(*body);
        });
    }
    unsigned resynchronizations() const { return handle->count("resynchronize"); }
    std::optional<std::string> version() {
        std::optional<std::string> text;
        onQueue([&] { text = printer->inlineGetFirmwareString(); });
        return text;
    }

    RecordedEvents events;
};

} // namespace

TEST_CASE("a reply that fits is accepted with exactly one write and two reads") {
    Asked bench;
    bench.reply("VK14 01.60\r");
    CHECK(bench.version() == "VK14 01.60");
    CHECK(bench.handle->traffic() == Calls{"WritePipeTO pipe 1, 32 bytes, 5000/5000 ms",
                                           "ReadPipeTO pipe 2, 8 bytes, 5000/5000 ms",
                                           "ReadPipeTO pipe 2, 11 bytes, 5000/5000 ms"});
    CHECK(bench.events.count<events::Resynchronized>() == 0);
}

TEST_CASE("after a missing reply the pipe is drained and the query is repeated") {
    Asked bench;
    bench.answersAgain("VK14 01.60\r");
    CHECK(bench.version() == "VK14 01.60");
    CHECK(bench.commands() == Calls{"INFO  FVER", "INFO  FVER"});
    CHECK(bench.handle->traffic().at(2) == "resynchronize pipe 2");
    CHECK(bench.log.times(kOutOfStep) == 1);
    CHECK(bench.events.count<events::Resynchronized>() == 1);
    CHECK_FALSE(bench.log.has(kUnusable));
}

TEST_CASE("a reply missing twice is reported as missing, with advice in the log") {
    Asked bench;
    bench.answersAgain(std::nullopt);
    CHECK(bench.version() == std::nullopt);
    CHECK(bench.commands() == Calls{"INFO  FVER", "INFO  FVER"});
    CHECK(bench.resynchronizations() == 1);
    CHECK(bench.log.has(kUnusable));
}

TEST_CASE("a reply to another query is dropped with all that follows it") {
    Asked bench;
    bench.reply("00000\r");
    bench.reply("CL0000042\r"); // the rest of the late reply
    bench.answersAgain("VK14 01.60\r");
    CHECK(bench.version() == "VK14 01.60");
    CHECK(bench.resynchronizations() == 1);
}

TEST_CASE("a reply of the wrong form is accepted when it is repeated") {
    Asked bench;
    bench.reply("PROTOTYPE\r");
    bench.answersAgain("PROTOTYPE\r");
    CHECK(bench.version() == "PROTOTYPE");
    CHECK(bench.commands().size() == 2);
    CHECK_FALSE(bench.log.has(kUnusable));
}

TEST_CASE("two replies that are wrong in different ways count as none") {
    Asked bench;
    bench.reply("00000\r");
    bench.answersAgain("CL0000042\r");
    CHECK(bench.version() == std::nullopt);
    CHECK(bench.commands().size() == 2);
    CHECK(bench.log.has(kUnusable));
}

TEST_CASE("an invalid, an oversized and a truncated reply are queried again") {
    Asked bench;
    SUBCASE("not a number") {
        bench.handle->enqueueRead(dataFromText("????????"));
    }
    SUBCASE("too long") {
        bench.handle->enqueueRead(dataFromText("00004097"));
    }
    SUBCASE("negative") {
        bench.handle->enqueueRead(dataFromText("-0000001"));
    }
    SUBCASE("seven bytes") {
        bench.handle->enqueueRead(dataFromText("0000000"));
    }
    SUBCASE("a truncated body") {
        bench.handle->enqueueRead(dataFromText("00000011"));
        bench.handle->enqueueRead(dataFromText("VK14 0"));
    }
    SUBCASE("a missing body") {
        bench.handle->enqueueRead(dataFromText("00000011"));
    }
    bench.answersAgain("VK14 01.60\r");
    CHECK(bench.version() == "VK14 01.60");
    CHECK(bench.resynchronizations() == 1);
}

TEST_CASE("a broken header that is repeated is handled as before, and its body does not remain in the pipe") {
    Asked bench;
    bench.handle->enqueueRead(dataFromText("????????"));
    bench.handle->expect("resynchronize");
    bench.handle->expectWritePipeTO(1, [](const Data&) { return true; }).during([&] {
        bench.handle->enqueueRead(dataFromText("????????"));
        bench.handle->enqueueRead(dataFromText("00000\r"));
    });
    std::optional<std::string> raw;
    bench.onQueue([&] { bench.printer->getPrinterStatus([&](const auto& status) { raw = status; }); });
    CHECK(raw == "");
    CHECK(bench.printer->printerStatus() == "Idle");
    CHECK(bench.resynchronizations() == 2);
}

TEST_CASE("no query is repeated after the printer was detached") {
    Asked bench;
    bench.handle->enqueueRead({}, kIOReturnNoDevice);
    CHECK(bench.version() == std::nullopt);
    CHECK(bench.commands().size() == 1);
    CHECK(bench.resynchronizations() == 0);
}

TEST_CASE("a printer that is updated through its other interface gets no second query, and its pipe is not drained") {
    Asked bench;
    constexpr ServiceToken kOther = 8;
    const std::string key = bench.printer->keyUSBdevice();
    bench.environment.deviceObjects->add(key, kOther);
    REQUIRE(bench.environment.deviceObjects->beginUpdate(key, kOther));
    CHECK(bench.version() == std::nullopt);
    CHECK(bench.commands().size() == 1);
    CHECK(bench.resynchronizations() == 0);
    bench.environment.deviceObjects->remove(key, kOther);
}

TEST_CASE("a pipe that does not become idle ends the query without a reply") {
    Asked bench;
    bench.reply("00000\r");
    bench.handle->setAnswer("resynchronize", kIOReturnOverrun);
    CHECK(bench.version() == std::nullopt);
    CHECK(bench.commands().size() == 1);
    CHECK(bench.log.has("could not be put in step (kIOReturnOverrun)"));
    CHECK(bench.log.has(kUnusable));
    CHECK(bench.events.count<events::AnswersFailed>() == 1);
    CHECK(bench.events.count<events::Resynchronized>() == 0);
}

TEST_CASE("a reply missing twice affects each value like a missing reply without repetition") {
    Asked bench(0x8B01);
    bench.printer->deviceInfoDict()->set(HOLVEN_TBPrinterFirmwareVersion, std::string("VK26 01.51"));
    bench.printer->deviceInfoDict()->set(HOLVEN_TBPrinterLifetimeCounter, std::string("7"));
    bench.printer->deviceInfoDict()->set(HOLVEN_ZUL_USB_ISerialisSet, std::string("1"));
    std::vector<std::string> versions;
    bench.onQueue([&] {
        bench.printer->getPrinterFirmwareVersion();
        bench.printer->getPrinterLifetimeCounter();
        bench.printer->updatePrinterSerialNumber();
        bench.printer->getPrinterColorTableVersion([&](const auto& values) { versions = values; });
        bench.printer->getUSB_ISerial();
    });
    CHECK(bench.printer->firmwareVersion() == "VK26 01.51");
    CHECK(bench.printer->lifetimeCounter() == "7");
    CHECK(bench.printer->printerSerialNumber() == "NULL");
    CHECK(versions == Calls{"NULL", "NULL", "NULL"});
    CHECK(bench.printer->usbISerialString() == "Enabled");
    CHECK(bench.commands().size() == 14); // each of the seven queries twice
}

TEST_CASE("a status missing twice calls no completion and keeps the earlier text") {
    Asked bench;
    bench.printer->setPrinterStatus("Printing");
    int calls = 0;
    bench.onQueue([&] { bench.printer->getPrinterStatus([&](const auto&) { ++calls; }); });
    CHECK(calls == 0);
    CHECK(bench.printer->printerStatus() == "Printing");
    CHECK(bench.log.times("Received a null printer status reply ... will try again later") == 1);
}

TEST_CASE("the wait for a status queries once per turn, and drops a late reply") {
    Asked bench;
    bool isReady = false;
    bench.handle->expect("resynchronize").during([&] { CHECK(bench.commands() == Calls{"STATUS"}); });
    bench.handle->expectWritePipeTO(1, [](const Data&) { return true; }).during([&] { bench.reply("00000\r"); });
    bench.onQueue([&] { isReady = bench.printer->waitForPrinterStatusCode("00000"); });
    CHECK(isReady);
    CHECK(bench.commands() == Calls{"STATUS", "STATUS"});
    CHECK(bench.resynchronizations() == 1);
    CHECK(bench.clock.elapsed() >= 500ms); // from the pause between two turns
}

TEST_CASE("for half a minute, a late reply is dropped before the next query") {
    Asked bench;
    bench.answersAgain("VK14 01.60\r");
    REQUIRE(bench.version() == "VK14 01.60");
    const auto askAfter = [&](Clock::Duration pause) {
        bench.clock.advance(bench.mainQueue, pause);
        bench.handle->clearJournal();
        bench.handle->expectWritePipeTO(1, [](const Data&) { return true; }).during([&] {
            bench.reply("VK14 01.60\r");
        });
        CHECK(bench.version() == "VK14 01.60");
        return bench.resynchronizations();
    };
    CHECK(askAfter(0ms) == 0); // the pipe was just drained
    CHECK(askAfter(2s) == 1);
    CHECK(askAfter(500ms) == 0);
    CHECK(askAfter(40s) == 1);
    CHECK(askAfter(40s) == 0);
}

TEST_CASE("a round of queries whose replies were shifted is repeated as a whole") {
    Asked bench;
    // An earlier status is in the pipe: every reply belongs to the query before.
    bench.reply("01000\r");
    bench.reply("00000\r");
    bench.handle->expect("resynchronize");
    const std::vector<std::string> answers = {"VK14 01.60\r", "CL0000042\r", "0160\r", "1F2E\r", "000001\r", "00000\r",
                                              "VK14 01.60\r", "CL0000042\r", "0160\r", "1F2E\r", "000001\r"};
    for (const std::string& answer : answers) {
        bench.handle->expectWritePipeTO(1, [](const Data&) { return true; }).during([&bench, answer] {
            bench.reply(answer);
        });
    }
    bench.onQueue([&] { bench.printer->updateInfo(); });
    CHECK(bench.printer->printerStatus() == "Idle");
    CHECK(bench.printer->firmwareVersion() == "VK14 01.60");
    CHECK(bench.printer->colorTableVersion() == "0160");
    CHECK(bench.printer->printerSerialNumber() == "000001");
    CHECK(bench.commands().size() == 2 + answers.size());
    REQUIRE(bench.events.count<events::QuestionsEnded>() == 1);
    CHECK(bench.events.all<events::QuestionsEnded>().back().isComplete);
}

TEST_CASE("a round with a missing reply ends with the status, which shows whether the others are in step") {
    Asked bench;
    const auto answerTo = [&](const std::string& body) {
        bench.handle->expectWritePipeTO(1, [](const Data&) { return true; }).during([&bench, body] {
            if (!body.empty()) bench.reply(body);
        });
    };
    for (const char* body : {"00000\r", "VK14 01.60\r", ""}) answerTo(body);
    bench.handle->expect("resynchronize");
    for (const char* body : {"CL0000042\r", "0160\r", "1F2E\r", "000001\r", "00000\r"}) answerTo(body);
    bench.onQueue([&] { bench.printer->updateInfo(); });
    CHECK(bench.commands() == Calls{"STATUS", "INFO  FVER", "MNT_RDCOUNTER_LIFE", "MNT_RDCOUNTER_LIFE", "TBL_RDVersion",
                                    "MNT_RDCTRLD_CHKSUM", "INFO  SERIAL_NUMBER", "STATUS"});
    CHECK(bench.printer->lifetimeCounter() == "42");
}
