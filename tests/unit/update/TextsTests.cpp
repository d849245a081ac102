// The operator's texts about an update.
#include "platform/foundation/LocalTime.h"
#include "unit/update/Followed.h"
#include "update/UpdateTexts.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace zul::test;
using namespace std::chrono_literals;

namespace {

std::string shown(const Followed& update, const UsualDurations& learned = {}) {
    return describeState(update.state(), const_cast<SimulatedClock&>(update.clock).now(), learned);
}

UpdateExpectation expected() {
    return {.version = "VK14 01.61", .tables = 2, .tableVersions = {{"colorTableVersion", {"0161"}}}};
}

} // namespace

TEST_CASE("a phase is shown with its duration and how long it usually takes") {
    Followed update;
    update.command(kCommandEnterLoader);
    update.report(events::Departed{});
    update.clock.sleepFor(14s);
    CHECK(shown(update) == "restarting into the loader (14 s, usually done within 30 s)");
    update.report(events::Arrived{});
    update.clock.sleepFor(3s);
    CHECK(shown(update) == "in the loader (3 s, usually done within 30 s)");
    CHECK(shown(update, {{UpdatePhase::loaderBack, 7s}}) == "in the loader (3 s, usually done within 7 s)");
}

TEST_CASE("a phase that depends on people is shown only with its duration") {
    Followed update;
    update.clock.sleepFor(2s);
    CHECK(shown(update) == "checking (2 s)");
}

TEST_CASE("the limit of a phase is twice the time of past updates, and at least its value in the table") {
    CHECK(longestDuration(UpdatePhase::loaderBack, {}) == 60s);
    CHECK(longestDuration(UpdatePhase::loaderBack, {{UpdatePhase::loaderBack, 7s}}) == 60s);
    CHECK(longestDuration(UpdatePhase::loaderBack, {{UpdatePhase::loaderBack, 50s}}) == 100s);
    CHECK_FALSE(longestDuration(UpdatePhase::done, {}));
}

TEST_CASE("an image is shown with its bytes, a table with its number") {
    Followed update;
    update.upToImage();
    update.bytes(1016, 2032);
    CHECK(shown(update) == "writing the firmware: 1016 of 2032 bytes (50 %) (0 s, usually done within 10 s)");
    update.image();
    update.restart();
    update.table(2);
    CHECK(shown(update) == "writing color tables: 2 of 2 (0 s, usually done within 60 s)");
}

TEST_CASE("the reason why a printer does not continue is shown with the phase") {
    Followed update;
    update.report(events::ReplyMissing{kIOUSBTransactionTimeout});
    CHECK(shown(update) == "checking: no answer (0 s)");
    update.report(events::ReplyRead{"x"});
    update.status("01000");
    CHECK(shown(update) == "checking: Cover Open (0 s)");
    update.upToTables();
    update.report(events::Opened{
        .code = kIOReturnExclusiveAccess,
        .holder = InterfaceHolder{.kind = InterfaceHolder::Kind::process, .program = "ipp", .pid = 812}});
    CHECK(shown(update) == "back, waiting until it is idle: another program uses the printer (ipp, process 812) (0 s, "
                           "usually done within 30 s)");
}

TEST_CASE("the holder of a printer is named as far as it is known") {
    using Kind = InterfaceHolder::Kind;
    CHECK(describeHolder({}) == "another program uses the printer");
    CHECK(describeHolder({.kind = Kind::process, .program = "another program"}) == "another program uses the printer");
    CHECK(describeHolder({.kind = Kind::printing, .program = "usb", .pid = 7}) == "it is printing (usb, process 7)");
    CHECK(describeHolder({.kind = Kind::printing}) == "it is printing");
    CHECK(describeHolder(
              {.kind = Kind::ownProgram, .program = "zulctl", .pid = 9, .activity = "update", .phase = "writing"}) ==
          "zulctl uses the printer (process 9): update, writing the firmware");
    CHECK(describeHolder({.kind = Kind::ownProgram, .program = "zulctl", .pid = 9, .activity = "claim"}) ==
          "zulctl uses the printer (process 9): claim");
    CHECK(describeHolder({.kind = Kind::ownProgram, .program = "zulctl", .pid = 9}) ==
          "zulctl uses the printer (process 9)");
    const std::int64_t since = 1'795'356'000;
    CHECK(describeHolder(
              {.kind = Kind::ownProgram, .program = "zulctl", .pid = 9, .activity = "claim", .since = since}) ==
          "zulctl uses the printer (process 9): claim, since " + localTimeText(since * 1000));
}

TEST_CASE("a refused command has its own text, not that of the phase before it") {
    Followed restart;
    restart.command(kCommandEnterLoader, kIOUSBPipeStalled);
    CHECK(shown(restart) == "the printer did not accept the command to restart (0 s)");
    CHECK(adviceFor(restart.state()).starts_with("Nothing has been changed in the printer."));
    Followed image;
    image.upToImage();
    image.image(kIOUSBPipeStalled);
    CHECK(shown(image) == "the printer did not accept the firmware (0 s)");
}

TEST_CASE("every phase in which a printer can stall has advice") {
    UpdateState state;
    for (int phase = 0; phase < static_cast<int>(UpdatePhase::done); ++phase) {
        state.phase = static_cast<UpdatePhase>(phase);
        CHECK(adviceFor(state).size() > 20);
    }
}

TEST_CASE("no advice is to close a program that updates the printer") {
    using Kind = InterfaceHolder::Kind;
    CHECK(adviceForHolder({.kind = Kind::ownProgram, .program = "zulctl", .pid = 7, .activity = "update"}) ==
          "It updates the printer: do not close it, and wait until it has finished.");
    CHECK(adviceForHolder({.kind = Kind::printing}) == "Wait until the job is printed.");
    const std::string close = "Close that program or wait until it has finished.";
    CHECK(adviceForHolder({.kind = Kind::ownProgram, .program = "zulctl", .pid = 7, .activity = "claim"}) == close);
    CHECK(adviceForHolder({.kind = Kind::process, .program = "ipp", .pid = 7}) == close);
    CHECK(adviceForHolder({}) == close);
}

TEST_CASE("the advice for a printer whose image was being sent when the update was stopped is a power cycle") {
    UpdateState state;
    state.bytesDone = 1;
    for (const auto phase : {UpdatePhase::writing, UpdatePhase::cutOff}) {
        state.phase = phase;
        CHECK(adviceAfter(UpdateResult::stopped, state).starts_with("Switch the printer off and on, then start"));
    }
    state.phase = UpdatePhase::loaderBack;
    CHECK(
        adviceAfter(UpdateResult::stopped, state).starts_with("The printer restarts into its loader or waits in it."));
}

TEST_CASE("advice contains the printer's status, its holder, and damaged files") {
    Followed update;
    update.status("01000");
    CHECK(adviceFor(update.state()).starts_with("The printer reports: Cover Open."));
    update.report(events::Opened{.code = kIOReturnExclusiveAccess});
    CHECK(adviceFor(update.state())
              .starts_with("Close that program or wait until it has finished. The update continues"));
    update.report(events::Opened{});
    update.upToLoader();
    update.report(events::ArchiveRefused{});
    CHECK(adviceFor(update.state())
              .starts_with("The firmware files are damaged. The printer is in firmware update mode"));
}

TEST_CASE("no operator text contains the name of a return code") {
    for (const IOReturn code : {kIOReturnNoDevice, kIOUSBTransactionTimeout, kIOUSBPipeStalled, kIOReturnOverrun,
                                kIOReturnExclusiveAccess, kIOReturnNotResponding, kIOReturnError}) {
        CHECK(describeFailure(code).find("kIO") == std::string::npos);
        CHECK(describeFailure(code).size() > 10);
    }
    Followed update;
    update.upToTables();
    update.tables(1);
    update.table(2);
    update.command(kCommandTableName, kIOUSBPipeStalled);
    update.finish();
    CHECK(reasonFor(UpdateResult::tablesMissing, update.state(), expected()) ==
          "only 1 of 2 color tables were sent (the printer refused the data)");
}

TEST_CASE("an update that did not begin has a reason") {
    Followed update;
    update.status("01000");
    const auto reason = [&](UpdateResult result) { return reasonFor(result, update.state(), expected()); };
    CHECK(reason(UpdateResult::notReady) == "the printer reports: Cover Open");
    CHECK(reason(UpdateResult::newerInstalled) == "the installed firmware VK14 01.60 is newer than VK14 01.61");
    CHECK(reason(UpdateResult::upToDate) == "VK14 01.60 and its color tables are installed already");
    CHECK(reason(UpdateResult::busy) == "another program uses the printer");
    for (int result = static_cast<int>(UpdateResult::upToDate); result <= static_cast<int>(UpdateResult::stopped);
         ++result) {
        if (static_cast<UpdateResult>(result) == UpdateResult::tablesDiffer) continue; // needs a table that differs
        CAPTURE(result);
        CHECK_FALSE(reason(static_cast<UpdateResult>(result)).empty());
    }
}

TEST_CASE("the advice for a printer that waits for the rest of its image is a power cycle, for one in its loader it "
          "is not") {
    Followed waits;
    waits.upToImage();
    waits.bytes(1000, 2032);
    waits.image(kIOUSBTransactionTimeout);
    waits.report(events::ReplyMissing{kIOUSBTransactionTimeout});
    CHECK(reasonFor(UpdateResult::imageNotTaken, waits.state(), expected()) ==
          "the transfer of the firmware was interrupted, and the printer waits for the rest of it");
    CHECK(adviceAfter(UpdateResult::imageNotTaken, waits.state()).starts_with("Switch the printer off and on"));
    Followed back;
    back.upToTables();
    back.status(kLoaderStatus);
    CHECK(reasonFor(UpdateResult::imageNotTaken, back.state(), expected()) ==
          "the printer is still in firmware update mode: it did not accept the firmware");
    CHECK(adviceAfter(UpdateResult::imageNotTaken, back.state()).starts_with("Leave the printer switched on"));
}

TEST_CASE("a printer that replies is not called unresponsive when it takes longer than usual") {
    Followed update;
    const std::string kAnswers = "The printer answers, but this takes longer than usual. Leave it switched on.";
    CHECK(adviceForDelay(update.state()) == kAnswers);
    update.upToImage();
    CHECK(adviceForDelay(update.state()).starts_with("This takes longer than usual. The printer is in firmware"));
    update.image();
    CHECK(adviceForDelay(update.state()) ==
          "This takes longer than usual. The printer has the firmware and has not restarted yet. Leave it switched "
          "on.");
    update.restart();
    CHECK(adviceForDelay(update.state()) == kAnswers);
    update.table(1);
    CHECK(adviceForDelay(update.state()) == kAnswers);
    Followed cut;
    cut.upToImage();
    cut.restart();
    REQUIRE(cut.state().isImageInDoubt());
    CHECK(adviceForDelay(cut.state()).starts_with("This takes longer than usual. The printer was disconnected while"));
}

TEST_CASE("a printer that does not report its device ID is shown so until it is detached") {
    Followed update;
    update.upToLoader();
    update.report(events::IdentityMissing{});
    CHECK(shown(update).find("it does not report its device ID") != std::string::npos);
    update.restart();
    CHECK(shown(update).find("device ID") == std::string::npos);
}
