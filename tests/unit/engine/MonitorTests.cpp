// What the update monitor makes of events.
#include "Classes/CommandFrame.h"
#include "Classes/StatusTexts.h"
#include "Classes/UpdateMonitor.h"
#include "Classes/UpdateWords.h"
#include "support/SimulatedClock.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

struct Watched {
    Watched() { monitor.beginUpdate("key", "VK14 01.60", "VK14 01.61", 2); }
    void tell(PrinterEvent::Kind kind, std::optional<std::string> text = {}, std::int64_t value = 0) {
        PrinterEvent event;
        event.kind = kind;
        event.key = "key";
        event.text = std::move(text);
        event.value = value;
        event.total = 2;
        monitor.printerEvent(event);
    }
    void command(std::uint32_t code, IOReturn result = kIOReturnSuccess, std::uint32_t length = 4) {
        PrinterEvent event;
        event.kind = PrinterEvent::Kind::commandSent;
        event.key = "key";
        event.command = code;
        event.code = result;
        event.payloadLength = length;
        monitor.printerEvent(event);
    }
    void upToTables() {
        command(kCommandEnterLoader);
        tell(PrinterEvent::Kind::departed);
        tell(PrinterEvent::Kind::arrived);
        tell(PrinterEvent::Kind::progressValue, {}, 2);
        command(kCommandProgramFlash);
        tell(PrinterEvent::Kind::departed);
        tell(PrinterEvent::Kind::arrived);
        tell(PrinterEvent::Kind::firmwareVersion, "VK14 01.61");
    }
    void tables(int count) {
        for (int table = 1; table <= count; ++table) {
            tell(PrinterEvent::Kind::colorTable, "t", table);
            command(kCommandTableName);
            command(kCommandTableWrite);
        }
    }
    UpdateState state() const { return *monitor.state("key"); }

    SimulatedClock clock;
    int changes = 0;
    UpdateMonitor monitor{clock, [this](const std::string&) { ++changes; }};
};

} // namespace

TEST_CASE("the monitor follows an update through all its phases") {
    Watched update;
    CHECK(update.state().phase == UpdatePhase::checking);
    update.command(kCommandEnterLoader);
    CHECK(update.state().phase == UpdatePhase::enteringLoader);
    update.tell(PrinterEvent::Kind::departed);
    CHECK(update.state().phase == UpdatePhase::loaderGone);
    update.tell(PrinterEvent::Kind::arrived);
    CHECK(update.state().phase == UpdatePhase::loaderBack);
    update.tell(PrinterEvent::Kind::progressValue, {}, 2);
    CHECK(update.state().phase == UpdatePhase::writing);
    CHECK(update.state().isDelicate());
    update.command(kCommandProgramFlash);
    CHECK(update.state().phase == UpdatePhase::programming);
    update.tell(PrinterEvent::Kind::departed);
    CHECK(update.state().phase == UpdatePhase::restarting);
    update.tell(PrinterEvent::Kind::arrived);
    CHECK(update.state().phase == UpdatePhase::restarted);
    update.tables(1);
    CHECK(update.state().phase == UpdatePhase::colorTables);
    CHECK(update.state().isDelicate());
    update.tell(PrinterEvent::Kind::finished, "VK14 01.61", 1);
    CHECK(update.state().phase == UpdatePhase::done);
    CHECK_FALSE(update.state().isDelicate());
}

TEST_CASE("success needs the offered version and every table, whatever was reported") {
    Watched good;
    good.upToTables();
    good.tables(2);
    good.tell(PrinterEvent::Kind::finished, "VK14 01.61", 1);
    CHECK(good.state().hasSucceeded());
    CHECK(reasonOfFailure(good.state()).empty());

    Watched oldVersion;
    oldVersion.upToTables();
    oldVersion.tell(PrinterEvent::Kind::firmwareVersion, "VK14 01.60");
    oldVersion.tables(2);
    oldVersion.tell(PrinterEvent::Kind::finished, "VK14 01.60", 1);
    CHECK(oldVersion.state().hasSucceeded() == false);
    CHECK(reasonOfFailure(oldVersion.state()) ==
          "the printer reports VK14 01.60 after the update instead of VK14 01.61");

    Watched oneTable;
    oneTable.upToTables();
    oneTable.tables(1);
    oneTable.tell(PrinterEvent::Kind::colorTable, "t", 2);
    oneTable.command(kCommandTableName, kIOReturnNoDevice);
    oneTable.command(kCommandTableWrite, kIOReturnNoDevice);
    oneTable.tell(PrinterEvent::Kind::finished, "VK14 01.61", 1);
    CHECK(reasonOfFailure(oneTable.state()) == "only 1 of 2 color tables were sent (kIOReturnNoDevice)");
}

TEST_CASE("a version that was read before the image does not count as the one after it") {
    Watched update;
    update.tell(PrinterEvent::Kind::firmwareVersion, "VK14 01.61");
    update.command(kCommandEnterLoader);
    update.tell(PrinterEvent::Kind::progressValue, {}, 2);
    CHECK(update.state().currentVersion == std::nullopt);
}

TEST_CASE("a table whose contents were missing does not count") {
    Watched update;
    update.upToTables();
    update.tell(PrinterEvent::Kind::colorTable, "t", 1);
    update.command(kCommandTableName);
    update.command(kCommandTableWrite, kIOReturnSuccess, 0);
    CHECK(update.state().tablesWritten == 0);
}

TEST_CASE("tables of a round that was broken off do not make up for those of the next one") {
    Watched update;
    update.upToTables();
    update.tables(1);
    update.tell(PrinterEvent::Kind::departed);
    update.tell(PrinterEvent::Kind::arrived);
    update.tell(PrinterEvent::Kind::firmwareVersion, "VK14 01.61");
    update.tell(PrinterEvent::Kind::colorTable, "t", 1);
    update.command(kCommandTableName);
    update.command(kCommandTableWrite, kIOUSBPipeStalled);
    update.tell(PrinterEvent::Kind::colorTable, "t", 2);
    update.command(kCommandTableName);
    update.command(kCommandTableWrite);
    update.tell(PrinterEvent::Kind::finished, "VK14 01.61", 1);
    CHECK_FALSE(update.state().hasSucceeded());
    CHECK(reasonOfFailure(update.state()) == "only 1 of 2 color tables were sent (kIOUSBPipeStalled)");
}

TEST_CASE("a loader that answers after the image is told apart from a printer that is waited for") {
    Watched update;
    update.upToTables();
    update.tell(PrinterEvent::Kind::status, "FU00001");
    CHECK(update.state().isBackInLoader);
    CHECK(adviceForStall(update.state()).find("still in firmware update mode") != std::string::npos);
    update.tell(PrinterEvent::Kind::progressValue, {}, 2); // the image goes out again
    CHECK(update.state().isBackInLoader == false);
}

TEST_CASE("a printer that takes questions and never answers gives no sign of life") {
    Watched update;
    update.upToTables();
    const auto before = update.state().lastSign;
    for (int question = 0; question < 20; ++question) {
        update.clock.sleepFor(5s);
        update.command(kCommandStatus, kIOReturnSuccess, 0);
        PrinterEvent bytes;
        bytes.kind = PrinterEvent::Kind::writeProgress;
        bytes.key = "key";
        bytes.bytesDone = bytes.bytesTotal = 32;
        update.monitor.printerEvent(bytes);
        update.tell(PrinterEvent::Kind::replyMissing);
        update.tell(PrinterEvent::Kind::status);
    }
    CHECK(update.state().lastSign == before);
    CHECK(adviceForStall(update.state()).find("does not answer") != std::string::npos);
}

TEST_CASE("a printer that has stopped answering is not said to report its last status") {
    Watched update;
    update.upToTables();
    update.tell(PrinterEvent::Kind::status, "01000");
    CHECK(update.state().isWaitingUntilReady());
    update.tell(PrinterEvent::Kind::replyMissing);
    CHECK_FALSE(update.state().isWaitingUntilReady());
    CHECK(adviceForStall(update.state()).find("does not answer") != std::string::npos);
}

TEST_CASE("a missing answer is no sign of life, and questions are no progress") {
    Watched update;
    update.upToTables();
    const auto before = update.state();
    update.clock.sleepFor(10s);
    update.tell(PrinterEvent::Kind::replyMissing);
    CHECK(update.state().lastSign == before.lastSign);
    update.tell(PrinterEvent::Kind::status, "01000");
    PrinterEvent bytes;
    bytes.kind = PrinterEvent::Kind::writeProgress;
    bytes.key = "key";
    bytes.bytesDone = bytes.bytesTotal = 32;
    update.monitor.printerEvent(bytes);
    CHECK(update.state().lastSign - before.lastSign == 10s);
    CHECK(update.state().lastProgress == before.lastProgress);
}

TEST_CASE("a waiting state is told with its age and what is expected") {
    Watched update;
    update.command(kCommandEnterLoader);
    update.tell(PrinterEvent::Kind::departed);
    update.clock.sleepFor(14s);
    CHECK(describeState(update.state(), update.clock.now()) ==
          "restarting into the loader since 14 s, expected within 30 s");
    update.tell(PrinterEvent::Kind::arrived);
    update.clock.sleepFor(3s);
    CHECK(describeState(update.state(), update.clock.now()) == "in the loader since 3 s, expected within 30 s");
}

TEST_CASE("a printer that is not ready after its restart is told with its trouble") {
    Watched update;
    update.upToTables();
    update.tell(PrinterEvent::Kind::status, "01100");
    CHECK(describeState(update.state(), update.clock.now()).find("(Paper End)") != std::string::npos);
}

TEST_CASE("a printer that is asked whether it is ready and is not gets advice with its trouble") {
    Watched watched;
    watched.tell(PrinterEvent::Kind::status, "00000");
    CHECK_FALSE(watched.state().isWaitingUntilReady());
    watched.tell(PrinterEvent::Kind::status, "FU00002"); // reads "Idle", too
    CHECK_FALSE(watched.state().isWaitingUntilReady());
    watched.tell(PrinterEvent::Kind::status, "01000");
    CHECK(watched.state().isWaitingUntilReady());
    CHECK(describeState(watched.state(), watched.clock.now()) == "checking (Cover Open) since 0 s");
    CHECK(adviceForStall(watched.state()).starts_with("The printer reports: Cover Open."));
    watched.command(kCommandEnterLoader);
    CHECK_FALSE(watched.state().isWaitingUntilReady()); // what it was before counts no more
    watched.tell(PrinterEvent::Kind::departed);
    watched.tell(PrinterEvent::Kind::arrived);
    watched.tell(PrinterEvent::Kind::status, kLoaderStatus);
    CHECK_FALSE(watched.state().isWaitingUntilReady());
}

TEST_CASE("a table begins with none of its bytes written, whatever the frame before it came to") {
    Watched watched;
    watched.upToTables();
    watched.tell(PrinterEvent::Kind::colorTable, "t", 1);
    PrinterEvent bytes;
    bytes.kind = PrinterEvent::Kind::writeProgress;
    bytes.key = "key";
    bytes.bytesDone = bytes.bytesTotal = 5000;
    watched.monitor.printerEvent(bytes);
    CHECK(watched.state().bytesDone == 5000);
    watched.tell(PrinterEvent::Kind::colorTable, "t", 2);
    CHECK(watched.state().bytesDone == 0);
    CHECK(watched.state().bytesTotal == 0);
}

TEST_CASE("files that are damaged while the printer is in its loader are named, and where the printer is") {
    Watched watched;
    watched.command(kCommandEnterLoader);
    watched.tell(PrinterEvent::Kind::departed);
    watched.tell(PrinterEvent::Kind::arrived);
    watched.tell(PrinterEvent::Kind::archiveRefused);
    CHECK(watched.state().isStuck());
    CHECK(adviceForStall(watched.state())
              .starts_with(
                  "The firmware files are damaged. The printer is in firmware update mode: leave it switched on"));
}

TEST_CASE("a printer that nobody follows changes nothing") {
    Watched update;
    PrinterEvent event;
    event.key = "another";
    update.monitor.printerEvent(event);
    CHECK(update.changes == 0);
    CHECK(update.monitor.state("another") == std::nullopt);
}

TEST_CASE("the time at a question is the operator's, not the printer's") {
    Watched update;
    update.clock.sleepFor(1000s);
    update.monitor.touch("key");
    CHECK(update.state().lastSign == update.clock.now());
    CHECK(update.state().lastProgress == update.clock.now());
}

TEST_CASE("an image that the bus did not take is told with its code, at once, and is no success") {
    Watched update;
    update.command(kCommandEnterLoader);
    update.tell(PrinterEvent::Kind::departed);
    update.tell(PrinterEvent::Kind::arrived);
    update.tell(PrinterEvent::Kind::progressValue, {}, 2);
    PrinterEvent bytes;
    bytes.kind = PrinterEvent::Kind::writeProgress;
    bytes.key = "key";
    bytes.bytesDone = 1000;
    bytes.bytesTotal = 2000;
    update.monitor.printerEvent(bytes);
    update.command(kCommandProgramFlash, kIOUSBPipeStalled);
    bytes.bytesDone = bytes.bytesTotal = 32; // a question behind it
    update.monitor.printerEvent(bytes);
    CHECK(update.state().bytesTotal == 2000);
    CHECK(update.state().isStuck());
    CHECK(describeState(update.state(), update.clock.now()).find("failed (kIOUSBPipeStalled)") != std::string::npos);
    CHECK(adviceForStall(update.state()).find("does not take the firmware") != std::string::npos);
    update.tell(PrinterEvent::Kind::departed);
    update.tell(PrinterEvent::Kind::arrived);
    update.tell(PrinterEvent::Kind::firmwareVersion, "VK14 01.61"); // it had that version before
    update.tables(2);
    update.tell(PrinterEvent::Kind::finished, "VK14 01.61", 1);
    CHECK_FALSE(update.state().hasSucceeded());
    CHECK(reasonOfFailure(update.state()) == "the firmware was not written (kIOUSBPipeStalled)");
}

TEST_CASE("a printer that did not take the command to restart is unchanged, and that is said at once") {
    Watched update;
    update.command(kCommandEnterLoader, kIOUSBPipeStalled);
    CHECK(update.state().isStuck());
    CHECK(adviceForStall(update.state()).find("Nothing has been changed in it") != std::string::npos);
}

TEST_CASE("files that are damaged before the tables are named as the cause") {
    Watched update;
    update.upToTables();
    update.tell(PrinterEvent::Kind::archiveRefused);
    CHECK(update.state().isStuck());
    CHECK(adviceForStall(update.state()).find("firmware files are damaged") != std::string::npos);
    CHECK(reasonOfFailure(update.state()) == "the firmware files are damaged");
}

TEST_CASE("a question without an answer shows at once, though it is no sign of life") {
    Watched update;
    update.tell(PrinterEvent::Kind::replyMissing);
    CHECK(describeState(update.state(), update.clock.now()) == "checking (no answer) since 0 s");
    update.tell(PrinterEvent::Kind::replyRead);
    CHECK(describeState(update.state(), update.clock.now()) == "checking since 0 s");
}

TEST_CASE("every phase in which a printer can stall has advice") {
    UpdateState state;
    for (int phase = 0; phase < static_cast<int>(UpdatePhase::done); ++phase) {
        state.phase = static_cast<UpdatePhase>(phase);
        CHECK(adviceForStall(state).size() > 20);
    }
}
