// Supervised updates: the good path, conditions that prevent an update, and failures that end it at once.
#include "SupervisedLab.h"

#include <algorithm>
#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Equal = UpdateSupervisor::Equal;
const std::string kReport = "Firmware update was successful!";

} // namespace

TEST_CASE("a supervised update ends with a verdict from device info, and its report is shown") {
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

TEST_CASE("the interface is kept from the start of an update to its end") {
    SupervisedLab lab;
    lab.startWithVK14();
    const std::uint32_t location = lab.printer()->locationNumber();
    lab.beginUpdate();
    CHECK(lab.kept.at(location));
    lab.rest();
    CHECK_FALSE(lab.kept.at(location));
}

TEST_CASE("the verdict waits for the end of the printer's queries after the report") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@SERIAL_NUMBER#2"); // the last queries end five seconds later
    lab.beginUpdate();
    while (!lab.update().state.isReported) lab.advance(100ms);
    CHECK(lab.update().isOpen());
    CHECK(lab.operatorDesk.waiting() == 0); // the engine's report waits, too
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.operatorDesk.title() == kReport);
}

// ---- conditions that prevent an update ------------------------------------------------------------------------------

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

TEST_CASE("an update that cannot be followed is not begun") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.areArrivalsSeen = false;
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest();
    CHECK(lab.result() == UpdateResult::cannotFollow);
    CHECK(lab.wire().empty());
    CHECK(lab.operatorDesk.waiting() == 0);
}

TEST_CASE("an update begins only after the attached printer has reported its own status") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@STATUS#2,fault=silence@STATUS#3");
    lab.bus.unplug(0);
    lab.rest();
    lab.bus.plug(0); // its first status query gets no reply, not even when it is repeated
    lab.rest(1s);
    CHECK(lab.infoText(HOLVEN_TBPrinterStatus) == "Idle"); // the earlier value
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

TEST_CASE("a refusal by the operator ends the update at once, with what was declined") {
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

TEST_CASE("a question that waits for its answer is not a missing reply of the printer") {
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

TEST_CASE("a printer that is detached before its update began ends it") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    lab.bus.unplug(0);
    lab.rest(1s);
    CHECK(lab.result() == UpdateResult::left);
}

TEST_CASE("a reconnect because of an unknown version is not taken for a detached printer") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@FVER,fault=silence@FVER#2,fault=silence@FVER#3,fault=silence@FVER#4");
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1min); // it is asked for its version once more
    lab.agree();
    lab.rest(1s);
    REQUIRE(lab.operatorDesk.press(lab.operatorDesk.buttons().at(1)));
    lab.rest();
    CHECK(lab.result() == UpdateResult::reconnected);
    CHECK(lab.printer()->firmwareVersion() == "VK14 01.60");
}

// ---- failures that end an update at once ----------------------------------------------------------------------------

TEST_CASE("a readiness query without a reply ends the update at once") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@STATUS#2,fault=silence@STATUS#3");
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    lab.agree();
    lab.advance(5s);
    CHECK(lab.update().isOpen()); // the query is repeated once
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

TEST_CASE("a refused image ends the update once the loader has shown that it waits for another one") {
    SupervisedLab lab;
    lab.startWithVK14("fault=stall@FLASH_PROGRAM");
    lab.beginUpdate();
    lab.rest(1min);
    CHECK(lab.result() == UpdateResult::imageNotTaken);
    CHECK(lab.update().verdict.reason ==
          "the printer is still in firmware update mode: it did not accept the firmware");
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

TEST_CASE("an image that is interrupted is never reported as written") {
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
