// The states that the update monitor derives from the engine's events.
#include "unit/update/Followed.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace zul::test;
using namespace std::chrono_literals;

TEST_CASE("the monitor follows an update through all its phases") {
    Followed update;
    CHECK(update.state().phase == UpdatePhase::checking);
    update.command(kCommandEnterLoader);
    CHECK(update.state().phase == UpdatePhase::enteringLoader);
    update.report(events::Departed{});
    CHECK(update.state().phase == UpdatePhase::loaderAway);
    update.report(events::Arrived{});
    CHECK(update.state().phase == UpdatePhase::loaderBack);
    update.report(events::ProgressStored{2});
    CHECK(update.state().phase == UpdatePhase::writing);
    CHECK(update.state().mustNotBeStopped());
    update.image();
    CHECK(update.state().phase == UpdatePhase::programming);
    update.report(events::Departed{});
    CHECK(update.state().phase == UpdatePhase::restarting);
    update.report(events::Arrived{});
    CHECK(update.state().phase == UpdatePhase::restarted);
    update.tables(1);
    CHECK(update.state().phase == UpdatePhase::colorTables);
    CHECK(update.state().mustNotBeStopped());
    update.finish();
    CHECK(update.state().phase == UpdatePhase::done);
    CHECK_FALSE(update.state().mustNotBeStopped());
}

TEST_CASE("each completed phase is kept with its duration") {
    Followed update;
    update.clock.sleepFor(3s);
    update.command(kCommandEnterLoader);
    update.clock.sleepFor(2s);
    update.report(events::Departed{});
    const auto past = update.state().pastPhases;
    REQUIRE(past.size() == 2);
    CHECK(past[0].phase == UpdatePhase::checking);
    CHECK(past[0].duration == 3s);
    CHECK(past[1].phase == UpdatePhase::enteringLoader);
    CHECK(past[1].duration == 2s);
}

TEST_CASE("a version that was read before the image is not used as the one after it") {
    Followed update;
    update.version("VK14 01.61");
    update.command(kCommandEnterLoader);
    update.report(events::ProgressStored{2});
    CHECK(update.state().currentVersion == std::nullopt);
}

TEST_CASE("a version that is not text changes no state") {
    Followed update;
    update.upToTables();
    update.report(events::FirmwareVersionRead{std::nullopt});
    CHECK(update.state().currentVersion == "VK14 01.61");
}

TEST_CASE("a table without contents, or without its name, is not counted") {
    Followed update;
    update.upToTables();
    update.table(1);
    update.command(kCommandTableName);
    update.command(kCommandTableWrite, kIOReturnSuccess, 0);
    CHECK(update.state().tablesWritten == 0);
    update.command(kCommandTableName, kIOUSBPipeStalled);
    update.command(kCommandTableWrite);
    CHECK(update.state().tablesWritten == 0);
    update.command(kCommandTableName);
    update.command(kCommandTableWrite);
    CHECK(update.state().tablesWritten == 1);
}

TEST_CASE("tables of an interrupted pass are not counted for the next one") {
    Followed update;
    update.upToTables();
    update.tables(1);
    update.restart();
    update.table(1);
    update.command(kCommandTableName);
    update.command(kCommandTableWrite, kIOUSBPipeStalled);
    update.table(2);
    update.command(kCommandTableName);
    update.command(kCommandTableWrite);
    CHECK(update.state().tablesWritten == 1);
}

TEST_CASE("values that are read back belong to the tables written last") {
    Followed update;
    update.upToTables();
    update.report(events::TableInfoRead{"colorTableVersion", "0160"}); // of the tables that are being replaced
    CHECK(update.state().tableReplies.empty());
    update.tables(1);
    update.report(events::TableInfoRead{"colorTableVersion", "0161"});
    CHECK(update.state().tableReplies.at("colorTableVersion") == "0161");
    update.table(1); // again from the beginning
    CHECK(update.state().tableReplies.empty());
}

TEST_CASE("a refused command to clear the tables is recorded") {
    Followed update;
    update.upToTables();
    update.command(kCommandTableClear, kIOUSBPipeStalled, 0);
    CHECK(update.state().isClearRefused);
    update.command(kCommandTableClear, kIOReturnSuccess, 0);
    CHECK_FALSE(update.state().isClearRefused);
}

TEST_CASE("a loader that replies after the image has not taken it") {
    Followed update;
    update.upToTables();
    update.status(kLoaderStatus);
    CHECK(update.state().phase == UpdatePhase::backInLoader);
    CHECK(update.state().image == ImageState::unconfirmed);
    CHECK_FALSE(update.state().mustNotBeStopped());
    update.report(events::ProgressStored{2}); // the image is sent again
    CHECK(update.state().phase == UpdatePhase::writing);
    CHECK(update.state().imagesSent == 2);
}

TEST_CASE("a printer detached during the image is cut off, not restarting") {
    Followed update;
    update.upToImage();
    update.bytes(1000, 2032);
    update.report(events::Departed{});
    CHECK(update.state().phase == UpdatePhase::cutOff);
    CHECK(phaseRow(update.state().phase).step == UpdateStep::writingFirmware);
    update.image(kIOReturnNoDevice); // the failed write is reported after the departure
    CHECK(update.state().phase == UpdatePhase::cutOff);
    CHECK(update.state().image == ImageState::unconfirmed);
    update.report(events::Arrived{});
    CHECK(update.state().phase == UpdatePhase::restarted);
}

TEST_CASE("a printer detached before the end of the command's write is reported is restarting into its loader") {
    Followed update;
    update.report(events::ProgressStored{1});
    update.report(events::Departed{});
    CHECK(update.state().phase == UpdatePhase::loaderAway);
    update.command(kCommandEnterLoader);
    CHECK(update.state().phase == UpdatePhase::loaderAway);
    update.report(events::Arrived{});
    CHECK(update.state().phase == UpdatePhase::loaderBack);
}

TEST_CASE("a printer detached before its update has sent a command has left") {
    Followed update;
    update.report(events::Departed{});
    CHECK(update.state().phase == UpdatePhase::checking);
    CHECK_FALSE(update.state().isAttached);
}

TEST_CASE("a printer detached before the end of the image's write is reported has taken it") {
    Followed update;
    update.upToImage();
    update.report(events::Departed{});
    update.image();
    CHECK(update.state().phase == UpdatePhase::restarting);
    CHECK(update.state().image == ImageState::taken);
}

TEST_CASE("the last queries of an object from before a restart do not apply to the printer after it") {
    Followed update;
    update.attachment = 1;
    update.report(events::Arrived{});
    update.upToImage();
    update.image();
    update.report(events::Departed{});
    update.attachment = 2;
    update.report(events::Arrived{});
    update.attachment = 1;
    update.report(events::ReplyMissing{kIOReturnNoDevice});
    update.status("01000");
    CHECK_FALSE(update.state().isAnswerMissing);
    CHECK(update.state().rawStatus.empty());
    update.report(events::Departed{}); // repeated, of an attachment that has ended
    CHECK(update.state().isAttached);
}

TEST_CASE("the second printer interface of a device is not a second update") {
    Followed update;
    update.attachment = 1;
    update.report(events::Arrived{});
    update.attachment = 2; // the other interface
    update.report(events::Arrived{});
    update.status(kLoaderStatus);
    update.report(events::Departed{});
    CHECK(update.state().attachment == 1);
    CHECK(update.state().isAttached);
    CHECK(update.state().rawStatus.empty());
}

TEST_CASE("a printer that accepts queries and never replies gives no sign of life") {
    Followed update;
    update.upToTables();
    const auto before = update.state().lastSign;
    for (int question = 0; question < 20; ++question) {
        update.clock.sleepFor(5s);
        update.command(kCommandStatus, kIOReturnSuccess, 0);
        update.bytes(32, 32);
        update.report(events::ReplyMissing{kIOUSBTransactionTimeout});
        update.report(events::StatusRead{});
    }
    CHECK(update.state().lastSign == before);
    CHECK(update.state().isAnswerMissing);
}

TEST_CASE("a reply is a sign of life, but no progress") {
    Followed update;
    update.upToTables();
    const auto before = update.state();
    update.clock.sleepFor(10s);
    update.status("01000");
    update.bytes(32, 32);
    CHECK(update.state().lastSign - before.lastSign == 10s);
    CHECK(update.state().lastProgress == before.lastProgress);
}

TEST_CASE("a printer that reports that it is not ready is waited for") {
    Followed update;
    update.status("00000");
    CHECK_FALSE(update.state().isWaitingUntilReady());
    update.status("FU00002"); // its text is "Idle", too
    CHECK_FALSE(update.state().isWaitingUntilReady());
    update.status("01000");
    CHECK(update.state().isWaitingUntilReady());
    update.report(events::ReplyMissing{kIOUSBTransactionTimeout}); // its last status is outdated now
    CHECK_FALSE(update.state().isWaitingUntilReady());
    update.report(events::ReplyRead{"01000"});
    update.command(kCommandEnterLoader);
    CHECK_FALSE(update.state().isWaitingUntilReady());
    update.restart();
    update.status(kLoaderStatus);
    CHECK_FALSE(update.state().isWaitingUntilReady());
}

TEST_CASE("a table begins with none of its bytes written, whatever the frame before it reached") {
    Followed update;
    update.upToTables();
    update.table(1);
    update.bytes(5000, 5000);
    CHECK(update.state().bytesDone == 5000);
    update.table(2);
    CHECK(update.state().bytesDone == 0);
    CHECK(update.state().bytesTotal == 0);
}

TEST_CASE("a query after the image does not change its displayed bytes") {
    Followed update;
    update.upToImage();
    update.bytes(1000, 2032);
    update.image(kIOUSBPipeStalled);
    update.bytes(32, 32);
    CHECK(update.state().bytesTotal == 2032);
    REQUIRE(update.state().refused);
    CHECK(update.state().refused->command == kCommandProgramFlash);
    CHECK(update.state().refused->code == kIOUSBPipeStalled);
    CHECK(update.state().phase == UpdatePhase::writing);
}

TEST_CASE("a refusal is confirmed when the round of queries after it has ended") {
    Followed update;
    update.upToImage();
    update.image(kIOUSBPipeStalled);
    CHECK_FALSE(update.state().isRefusalAnswered);
    update.report(events::QuestionsEnded{});
    CHECK(update.state().isRefusalAnswered);
    update.image(kIOUSBPipeStalled);
    CHECK_FALSE(update.state().isRefusalAnswered);
}

TEST_CASE("another program that holds the printer is reported until the printer is opened or detached") {
    Followed update;
    const InterfaceHolder printing{.kind = InterfaceHolder::Kind::printing, .program = "usb", .pid = 812};
    update.report(events::Opened{.code = kIOReturnExclusiveAccess, .holder = printing});
    CHECK(update.state().holder == printing);
    update.report(events::Opened{.code = kIOReturnExclusiveAccess});
    CHECK(update.state().holder == InterfaceHolder{});
    update.report(events::Opened{});
    CHECK_FALSE(update.state().isHeldElsewhere());
    update.report(events::Opened{.code = kIOReturnExclusiveAccess, .holder = printing});
    update.command(kCommandEnterLoader);
    update.restart();
    CHECK_FALSE(update.state().isHeldElsewhere());
}

TEST_CASE("rounds of queries are counted from the report on") {
    Followed update;
    update.upToTables();
    update.report(events::QuestionsEnded{true});
    update.finish();
    CHECK(update.state().roundsSinceReport == 0);
    update.report(events::QuestionsEnded{true});
    CHECK(update.state().roundsSinceReport == 1);
}

TEST_CASE("it is known of every printer whether it has reported a status, until it is detached") {
    Followed update;
    UpdateMonitor& monitor = update.monitor;
    monitor.printerEvent({.key = "other", .location = {}, .attachment = 3, .what = events::Arrived{}});
    CHECK_FALSE(monitor.hasReportedStatus("other"));
    monitor.printerEvent({.key = "other", .location = {}, .attachment = 2, .what = events::StatusRead{"00000"}});
    CHECK_FALSE(monitor.hasReportedStatus("other")); // of the previous attachment
    monitor.printerEvent({.key = "other", .location = {}, .attachment = 3, .what = events::StatusRead{"00000"}});
    CHECK(monitor.hasReportedStatus("other"));
    monitor.printerEvent({.key = "other", .location = {}, .attachment = 4, .what = events::Arrived{}});
    CHECK_FALSE(monitor.hasReportedStatus("other"));
}

TEST_CASE("a printer has bad replies from a failed reply to the next round of queries without one") {
    Followed update;
    UpdateMonitor& monitor = update.monitor;
    const auto happens = [&](PrinterEvent::What what) {
        monitor.printerEvent({.key = "other", .location = {}, .attachment = 3, .what = std::move(what)});
        return monitor.isNotAnswering("other");
    };
    CHECK_FALSE(happens(events::Arrived{}));
    CHECK(happens(events::AnswersFailed{}));
    CHECK(happens(events::StatusRead{"00000"}));
    CHECK(happens(events::QuestionsEnded{})); // of the round in which it failed
    CHECK_FALSE(happens(events::QuestionsEnded{true}));
    CHECK(happens(events::AnswersFailed{}));
    CHECK_FALSE(happens(events::Arrived{})); // it was switched off and on
}

TEST_CASE("events of a printer that is not followed change no state") {
    Followed update;
    update.monitor.printerEvent({.key = "another", .location = {}, .attachment = 0, .what = events::Arrived{}});
    CHECK(update.changes == 0);
    CHECK(update.monitor.state("another") == std::nullopt);
}

TEST_CASE("every change of a followed printer is notified, and an event without a change is not") {
    Followed update;
    update.status("00000");
    CHECK(update.changes == 1);
    update.bytes(32, 32);
    CHECK(update.changes == 1);
}

TEST_CASE("the time of a question is the operator's, not the printer's") {
    Followed update;
    update.clock.sleepFor(1000s);
    update.monitor.touch("key");
    CHECK(update.state().lastSign == update.clock.now());
    CHECK(update.state().lastProgress == update.clock.now());
}

TEST_CASE("the share of an update grows from phase to phase, with bytes and tables in between") {
    Followed update;
    double last = 0;
    const auto grows = [&] {
        const double share = update.state().share();
        const bool isMore = share > last;
        last = share;
        return isMore && share < 1;
    };
    update.command(kCommandEnterLoader);
    CHECK(grows());
    update.restart();
    CHECK(grows());
    update.report(events::ProgressStored{2});
    CHECK(grows());
    update.bytes(1000, 2032);
    CHECK(grows());
    update.image();
    CHECK(grows());
    update.restart();
    CHECK(grows());
    update.table(1);
    CHECK(grows());
    update.table(2);
    CHECK(grows());
    update.finish();
    CHECK(update.state().share() == doctest::Approx(1.0));
}

TEST_CASE("the state of an attachment ends with it") {
    Followed update;
    UpdateMonitor& monitor = update.monitor;
    const auto happens = [&](std::uint32_t attachment, PrinterEvent::What what) {
        monitor.printerEvent({.key = "other", .location = {}, .attachment = attachment, .what = std::move(what)});
    };
    happens(3, events::Arrived{});
    CHECK(monitor.attachedKeys() == std::vector<std::string>{"other"});
    CHECK_FALSE(monitor.wasAskedForAll("other"));
    CHECK_FALSE(monitor.isIdentityMissing("other"));
    happens(3, events::QuestionsEnded{.isComplete = false});
    happens(2, events::QuestionsEnded{.isComplete = true}); // of the previous attachment
    CHECK_FALSE(monitor.wasAskedForAll("other"));
    happens(3, events::QuestionsEnded{.isComplete = true});
    CHECK(monitor.wasAskedForAll("other"));
    happens(3, events::IdentityMissing{});
    CHECK(monitor.isIdentityMissing("other"));
    monitor.beginUpdate({.key = "other", .attachment = 3});
    CHECK(monitor.state("other")->isIdentityMissing);
    happens(3, events::Departed{});
    CHECK(monitor.attachedKeys().empty());
    happens(4, events::Arrived{});
    CHECK_FALSE(monitor.wasAskedForAll("other"));
    CHECK_FALSE(monitor.isIdentityMissing("other"));
}
