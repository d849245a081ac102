// Updates under supervision: what each comes to, when advice is due, what ends at once and what is waited for.
#include "SupervisedLab.h"

#include <algorithm>
#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Equal = UpdateSupervisor::Equal;
const std::string kReport = "Firmware update was successful!";

// Questions for the version that the new firmware does not answer: from the third, as the loader gets the second, to
// this one.
std::string silentVersions(int last) {
    std::string faults = "fault=silence@FVER#3";
    for (int question = 4; question <= last; ++question) faults += ",fault=silence@FVER#" + std::to_string(question);
    return faults;
}

} // namespace

TEST_CASE("a supervised update ends with a verdict by facts, and its report is shown") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.ends == std::vector<UpdateResult>{UpdateResult::succeeded});
    CHECK(lab.update().state.currentVersion == "VK14 01.61");
    CHECK(lab.update().state.tablesWritten == 2);
    CHECK(lab.update().verdict.reason.empty());
    CHECK(lab.update().advice.empty());
    CHECK(lab.operatorDesk.title() == kReport);
    CHECK(lab.operatorDesk.waiting() == 1);
    CHECK_FALSE(lab.supervisor.isAnyUnderWay());
}

TEST_CASE("supervision adds nothing to the wire of an update") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.beginUpdate();
    lab.rest();
    Wire expected = {"STATUS", "STATUS", "FW_UPDFLASH_REWRITE", "leave"};
    for (const char* step : {"arrive", "INFO  FVER", "STATUS", "FW_UPDFLASH_PROGRAM", "STATUS", "leave", "arrive",
                             "INFO  FVER", "STATUS"}) {
        expected.emplace_back(step);
    }
    for (const Wire& part : {tablesWire(), Wire{"STATUS"}, attachWire()}) {
        expected.insert(expected.end(), part.begin(), part.end());
    }
    CHECK(lab.wire() == expected);
}

TEST_CASE("the interface is kept from the beginning of an update to its end") {
    SupervisedLab lab;
    lab.startWithVK14();
    const std::uint32_t location = lab.printer()->locationNumber();
    lab.beginUpdate();
    CHECK(lab.kept.at(location));
    lab.rest();
    CHECK_FALSE(lab.kept.at(location));
}

TEST_CASE("the verdict waits for the end of the printer's questions after the report") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@SERIAL_NUMBER#2"); // the last round ends five seconds later
    lab.beginUpdate();
    while (!lab.update().state.isReported) lab.advance(100ms);
    CHECK(lab.update().isOpen());
    CHECK(lab.operatorDesk.waiting() == 0); // the engine's report waits, too
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.operatorDesk.title() == kReport);
}

// ---- what keeps an update from beginning ----------------------------------------------------------------------------

TEST_CASE("a printer with the available firmware and tables is skipped unless it is to be installed again") {
    SupervisedLab lab;
    lab.startWithVK14("firmware=VK14 01.61,tables=0161");
    CHECK(lab.supervisor.isUpToDate(*lab.printer()));
    lab.supervisor.begin(lab.printer(), Equal::skip);
    lab.rest();
    CHECK(lab.result() == UpdateResult::upToDate);
    CHECK(lab.wire().empty());
    lab.beginUpdate(Equal::install);
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
}

TEST_CASE("a printer with the available firmware and other tables is updated") {
    SupervisedLab lab;
    lab.startWithVK14("firmware=VK14 01.61,tables=0160");
    CHECK_FALSE(lab.supervisor.isUpToDate(*lab.printer()));
    lab.beginUpdate(Equal::skip);
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
}

TEST_CASE("nothing is begun that cannot be followed") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.areArrivalsSeen = false;
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest();
    CHECK(lab.result() == UpdateResult::cannotFollow);
    CHECK(lab.wire().empty());
    CHECK(lab.operatorDesk.waiting() == 0);
}

TEST_CASE("an update begins only when the attached printer has reported a status of its own") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@STATUS#2,fault=silence@STATUS#3");
    lab.bus.unplug(0);
    lab.rest();
    lab.bus.plug(0); // its first question for the status is not answered, not even when it is asked once more
    lab.rest(1s);
    CHECK(lab.fact(HOLVEN_TBPrinterStatus) == "Idle"); // what it had before
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    CHECK(lab.operatorDesk.waiting() == 0);
    lab.rest(30s);
    CHECK(lab.operatorDesk.title() == "Attention:");
}

TEST_CASE("a printer that never reports a status is not updated") {
    SupervisedLab lab;
    std::string faults = "fault=silence@STATUS";
    for (int question = 2; question < 12; ++question) faults += ",fault=silence@STATUS#" + std::to_string(question);
    lab.startWithVK14(faults);
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest();
    CHECK(lab.result() == UpdateResult::unanswered);
    CHECK(lab.operatorDesk.waiting() == 0);
}

TEST_CASE("what the operator declines ends the update at once, with what was declined") {
    SupervisedLab lab;
    SUBCASE("the agreement") {
        lab.startWithVK14();
        lab.supervisor.begin(lab.printer(), Equal::install);
        lab.rest(1s);
        REQUIRE(lab.operatorDesk.press("Quit"));
        lab.rest();
        CHECK(lab.result() == UpdateResult::declined);
        CHECK(lab.application.terminations == 1);
    }
    SUBCASE("the confirmation") {
        lab.startWithVK14();
        lab.beginUpToQuestion();
        REQUIRE(lab.operatorDesk.press("Cancel"));
        lab.rest();
        CHECK(lab.result() == UpdateResult::declined);
    }
    SUBCASE("a printer that is not ready") {
        lab.startWithVK14("status=01000");
        lab.beginUpToQuestion();
        REQUIRE(lab.operatorDesk.title() == "Printer Not Ready");
        REQUIRE(lab.operatorDesk.press("Cancel"));
        lab.rest();
        CHECK(lab.result() == UpdateResult::notReady);
        CHECK(lab.update().verdict.reason == "the printer reports: Cover Open");
    }
    SUBCASE("a newer firmware, which cannot be replaced") {
        lab.startWithVK14("firmware=VK14 01.70");
        lab.supervisor.begin(lab.printer(), Equal::install);
        lab.rest(1s);
        lab.agree();
        REQUIRE(lab.operatorDesk.press("OK"));
        lab.rest();
        CHECK(lab.result() == UpdateResult::newerInstalled);
    }
    CHECK(lab.timesSeen("FW_UPDFLASH_REWRITE") == 0);
    CHECK(lab.update().verdict.isUntouched());
}

TEST_CASE("a question that waits for its answer is not a silence of the printer") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(10min);
    CHECK(lab.update().isAsking);
    CHECK_FALSE(lab.update().isStalled);
    lab.agree();
    lab.rest(1s);
    CHECK(lab.update().isOpen());
    CHECK_FALSE(lab.update().isStalled);
}

TEST_CASE("a printer that leaves before its update began ends it") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    lab.bus.unplug(0);
    lab.rest(1s);
    CHECK(lab.result() == UpdateResult::left);
}

TEST_CASE("a printer that is made to reconnect because its version is not known did not leave by itself") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@FVER,fault=silence@FVER#2");
    lab.beginUpToQuestion();
    REQUIRE(lab.operatorDesk.press(lab.operatorDesk.buttons().at(1)));
    lab.rest();
    CHECK(lab.result() == UpdateResult::reconnected);
    CHECK(lab.printer()->firmwareVersion() == "VK14 01.60");
}

// ---- dead ends ------------------------------------------------------------------------------------------------------

TEST_CASE("a readiness question without an answer ends the update at once") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@STATUS#2,fault=silence@STATUS#3");
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    lab.agree();
    lab.advance(5s);
    CHECK(lab.update().isOpen()); // it is asked once more
    lab.advance(5s);
    lab.rest(100ms);
    CHECK(lab.result() == UpdateResult::unanswered);
}

TEST_CASE("a refused command to enter the loader ends the update at once and leaves the printer untouched") {
    SupervisedLab lab;
    lab.startWithVK14("fault=stall@FLASH_REWRITE");
    lab.beginUpdate();
    lab.rest(1s);
    CHECK(lab.result() == UpdateResult::commandRefused);
    CHECK(lab.update().verdict.isUntouched());
    REQUIRE(lab.update().verdict.refused);
    CHECK(lab.update().verdict.refused->code == kIOUSBPipeStalled);
}

TEST_CASE("a refused image ends the update when the loader has shown that it waits for another one") {
    SupervisedLab lab;
    lab.startWithVK14("fault=stall@FLASH_PROGRAM");
    lab.beginUpdate();
    lab.rest(1min);
    CHECK(lab.result() == UpdateResult::imageNotTaken);
    CHECK(lab.update().verdict.reason == "the printer is still in firmware update mode: it did not take the firmware");
}

TEST_CASE("a printer that is back in its loader after the image ends the update, and a second start completes it") {
    SupervisedLab lab;
    lab.startWithVK14("fault=stay-in-loader@FLASH_PROGRAM");
    lab.beginUpdate();
    lab.rest(1min);
    CHECK(lab.result() == UpdateResult::imageNotTaken);
    CHECK(lab.update().advice.find("start the update again: that completes it") != std::string::npos);
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.timesSeen("FW_UPDFLASH_PROGRAM") == 2);
}

TEST_CASE("an image that is cut in the middle is never called written") {
    SupervisedLab lab;
    lab.startWithVK14("fault=unplug@FLASH_PROGRAM");
    lab.beginUpdate();
    while (lab.update().state.phase != UpdatePhase::cutOff) lab.advance(50ms);
    CHECK(phaseRow(lab.update().state.phase).step == UpdateStep::writingFirmware);
    lab.rest(1min);
    CHECK(lab.result() == UpdateResult::imageNotTaken);
    CHECK(phaseRow(lab.update().state.phase).step == UpdateStep::writingFirmware);
}

TEST_CASE("files that are damaged while the printer is in its loader end the update") {
    ChangedSamples samples;
    SupervisedLab lab(samples.folder());
    lab.startWithVK14();
    lab.beginUpdate();
    while (lab.update().state.phase < UpdatePhase::loaderBack) lab.advance(50ms);
    samples.damage("VK14 01.61.fw");
    lab.rest();
    CHECK(lab.result() == UpdateResult::badFiles);
    CHECK(lab.timesSeen("FW_UPDFLASH_PROGRAM") == 0);
    CHECK(lab.update().advice.find("The printer is in firmware update mode") != std::string::npos);
}

// ---- waiting --------------------------------------------------------------------------------------------------------

TEST_CASE("advice is due when a phase has taken its longest time, and a late return is a success like any other") {
    SupervisedLab lab;
    lab.startWithVK14("fault=never-back@FLASH_REWRITE");
    lab.beginUpdate();
    lab.rest(30s);
    CHECK_FALSE(lab.update().isStalled);
    CHECK(lab.update().advice.empty());
    lab.rest(2min);
    CHECK(lab.update().isStalled);
    CHECK(lab.update().advice.starts_with("The printer has not come back as its loader."));
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.update().advice.empty());
}

TEST_CASE("the time until advice can be set, and an update without progress ends where that is asked for") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.stallAfter = 2s, .giveUpAfter = 5s});
    lab.startWithVK14("fault=never-back@FLASH_REWRITE");
    lab.beginUpdate();
    lab.rest(3s);
    CHECK(lab.update().isStalled);
    lab.rest(4s);
    CHECK(lab.result() == UpdateResult::notBack);
    CHECK(lab.update().verdict.reason == "the printer did not come back");
}

TEST_CASE("a verdict is corrected when a late return brings other facts") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 20s});
    lab.startWithVK14("fault=never-back@FLASH_PROGRAM");
    lab.beginUpdate();
    lab.rest(1min);
    REQUIRE(lab.result() == UpdateResult::notBack);
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.ends == std::vector<UpdateResult>{UpdateResult::notBack, UpdateResult::succeeded});
    CHECK(lab.update().verdict.isCorrected);
}

TEST_CASE("a printer that answers but is not ready gets advice with its trouble, and goes on by itself") {
    SupervisedLab lab;
    std::string statuses = "01000";
    for (int answer = 0; answer < 60; ++answer) statuses += ":01000"; // two of them a second
    lab.startWithVK14("after-update=" + statuses + ":00000");
    lab.beginUpdate();
    while (lab.update().state.phase != UpdatePhase::restarted) lab.advance(50ms);
    lab.rest(5s);
    CHECK_FALSE(lab.update().isWaiting);
    lab.rest(10s);
    CHECK(lab.update().isWaiting);
    CHECK_FALSE(lab.update().isStalled);
    CHECK(lab.update().advice.starts_with("The printer reports: Cover Open."));
    CHECK(lab.supervisor.reasonAgainst(lab.printer()->keyUSBdevice()) == "This printer is being updated.");
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
}

TEST_CASE("a printer that comes back at another place is named with both places, and gets no image") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 5min});
    lab.startWithVK14("fault=elsewhere@FLASH_REWRITE");
    lab.beginUpdate();
    lab.rest(1min);
    CHECK(lab.update().cameBackAt == "1-2");
    CHECK(lab.update().advice.starts_with("The printer came back at 1-2 instead of 1-1."));
    lab.rest();
    CHECK(lab.result() == UpdateResult::notBack);
    CHECK(lab.update().verdict.reason == "the printer came back at 1-2 instead of 1-1");
    CHECK(lab.timesSeen("FW_UPDFLASH_PROGRAM") == 0);
}

TEST_CASE("a silent printer is noticed while others are heard of all the time") {
    SupervisedLab lab;
    lab.attach("VK14,after-update=01000");
    lab.attach("VK14,fault=never-back@FLASH_REWRITE");
    lab.start();
    const std::string silent = lab.printer(1)->keyUSBdevice();
    for (const auto& printer : lab.controller->printers()) {
        lab.supervisor.begin(printer, Equal::install);
        lab.rest(1s);
        lab.agree();
        lab.rest(1s);
        REQUIRE(lab.operatorDesk.press(lab.operatorDesk.buttons().at(1)));
    }
    lab.rest(3min);
    CHECK(lab.supervisor.updates().at(silent).isStalled);
    CHECK_FALSE(lab.supervisor.updates().begin()->second.isStalled);
}

TEST_CASE("another update of a printer is refused while one is under way, and allowed when that has stalled") {
    SupervisedLab lab;
    lab.startWithVK14("fault=never-back@FLASH_PROGRAM");
    lab.beginUpdate();
    const auto first = lab.printer();
    while (lab.update().state.phase != UpdatePhase::writing) lab.advance(50ms);
    lab.supervisor.begin(first, Equal::install);
    CHECK(lab.operatorDesk.waiting() == 0);
    lab.rest(3min);
    CHECK(lab.supervisor.reasonAgainst(first->keyUSBdevice()).empty());
    CHECK(lab.supervisor.mayGetSecondImage(first->keyUSBdevice()));
}

TEST_CASE("an update that is dismissed is hidden until it gets on, and one that has ended is forgotten") {
    SupervisedLab lab;
    lab.startWithVK14("fault=never-back@FLASH_REWRITE");
    lab.beginUpdate();
    lab.rest(1s);
    const std::string key = lab.update().state.key;
    lab.supervisor.dismiss(key); // not yet: it is under way
    CHECK_FALSE(lab.update().isDismissed);
    lab.rest(2min);
    lab.supervisor.dismiss(key);
    CHECK(lab.update().isDismissed);
    CHECK_FALSE(lab.supervisor.isAnyUnderWay());
    lab.rest(1min);
    CHECK(lab.update().isDismissed);
    lab.bus.plug(0);
    lab.rest(1s);
    CHECK_FALSE(lab.update().isDismissed);
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    lab.supervisor.dismiss(key);
    CHECK(lab.supervisor.updates().empty());
}

// ---- report and verdict ---------------------------------------------------------------------------------------------

TEST_CASE("where the engine's report and the facts differ, the facts are shown in front") {
    SupervisedLab lab;
    lab.startWithVK14("fault=stall@UPDATE_CW#2");
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::tablesMissing);
    REQUIRE(lab.operatorDesk.waiting() == 2);
    CHECK(lab.operatorDesk.title() == "The update is not complete.");
    CHECK(lab.operatorDesk.message().starts_with(
        "Reason: only 1 of 2 color tables were sent (the printer refused the data)."));
    REQUIRE(lab.operatorDesk.press("OK"));
    CHECK(lab.operatorDesk.title() == kReport);
}

TEST_CASE("a refused command to clear the tables is not reported as a success") {
    SupervisedLab lab;
    lab.startWithVK14("fault=stall@TBL_CL");
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::clearRefused);
    CHECK(lab.operatorDesk.title() == "The update is not complete.");
}

TEST_CASE("one lost answer to the question for the version does not make a good update a failed one") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@FVER#3"); // the second one is that of the loader
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.update().state.currentVersion == "VK14 01.61");
}

TEST_CASE("a printer that does not answer for its version in two rounds is asked once more") {
    SupervisedLab lab;
    lab.startWithVK14(silentVersions(6)); // each is asked for twice
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
}

TEST_CASE("a version that is never read is no success, until it is read later") {
    SupervisedLab lab;
    lab.startWithVK14(silentVersions(8));
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::versionUnread);
    lab.printer()->updateInfo();
    lab.rest();
    CHECK(lab.ends == std::vector<UpdateResult>{UpdateResult::versionUnread, UpdateResult::succeeded});
    CHECK(lab.update().verdict.isCorrected);
}

TEST_CASE("a printer that was found in its loader is supervised from its own alert on") {
    SupervisedLab lab;
    lab.startWithVK14("mode=loader");
    lab.bus.unplug(0);
    lab.rest();
    lab.bus.plug(0); // known now: it is asked where it is
    lab.rest(1s);
    REQUIRE(lab.operatorDesk.title() == "Attention:");
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.operatorDesk.title() == kReport);
}

// ---- stopping -------------------------------------------------------------------------------------------------------

TEST_CASE("an update that is asked to stop before its first command stops at once") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    lab.supervisor.requestStop();
    CHECK(lab.result() == UpdateResult::stopped);
}

TEST_CASE("an update that is asked to stop in the loader goes on until the whole image is sent") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.beginUpdate();
    while (lab.update().state.phase != UpdatePhase::loaderBack) lab.advance(50ms);
    lab.supervisor.requestStop();
    CHECK(lab.update().isOpen());
    CHECK(lab.supervisor.isAnyBetweenCommands());
    lab.rest(10s);
    CHECK(lab.ends.front() == UpdateResult::stopped);
    CHECK(lab.timesSeen("FW_UPDFLASH_PROGRAM") == 1);
}

TEST_CASE("an update that is asked to stop while its tables are written goes on until they are") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@TBL_RDVersion#3");
    lab.beginUpdate();
    while (lab.update().state.phase != UpdatePhase::colorTables) lab.advance(50ms);
    lab.supervisor.requestStop();
    CHECK(lab.update().isOpen());
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
}

TEST_CASE("a printer that cannot be left is left after a minute all the same") {
    SupervisedLab lab;
    lab.startWithVK14("fault=never-back@FLASH_REWRITE");
    lab.beginUpdate();
    lab.rest(2s);
    lab.supervisor.requestStop();
    lab.advance(58s);
    CHECK(lab.update().isOpen());
    lab.advance(3s);
    CHECK(lab.result() == UpdateResult::stopped);
    CHECK(lab.update().advice.size() > 20);
}
