// Several updates of one printer in a run, or an update after one without an end: each update is judged by its own
// events, and a success closes the records that earlier attempts left open.
#include "SupervisedLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace zul::test;
using namespace std::chrono_literals;

namespace {

using Equal = UpdateSupervisor::Equal;
using Results = std::vector<UpdateResult>;

// One successful update whose report the operator has read.
void updateOnce(SupervisedLab& lab) {
    lab.beginUpdate();
    lab.rest();
    REQUIRE(lab.result() == UpdateResult::succeeded);
    REQUIRE(lab.operatorDesk.press("Finish"));
    lab.rest();
}

void dismissAlerts(SupervisedLab& lab) {
    while (lab.operatorDesk.waiting() > 0) REQUIRE(lab.operatorDesk.press(lab.operatorDesk.buttons().front()));
}

// The printer was switched on in its loader, without an order of this program, and the operator starts its update.
void updateFromLoader(SupervisedLab& lab, const std::string& settings) {
    // The engine's state of an ended update is discarded at the next attachment.
    lab.bus.unplug(0);
    lab.rest();
    lab.bus.plug(0);
    lab.rest();
    lab.bus.unplug(0);
    lab.rest();
    lab.attach("VK14,location=1-1,mode=loader" + settings);
    lab.rest();
    REQUIRE(lab.operatorDesk.title() == "Attention:");
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
}

// Its loader is unresponsive, so no command is sent to it.
const std::string kSilentLoader = "fault=silence@STATUS#4,fault=silence@STATUS#5";

void stallInLoader(SupervisedLab& lab) {
    lab.beginUpdate();
    lab.rest(3min);
    REQUIRE(lab.update().state.phase == UpdatePhase::loaderBack);
    REQUIRE(lab.update().isStalled);
    REQUIRE(lab.operatorDesk.waiting() == 0);
}

} // namespace

// ---- one update after another ---------------------------------------------------------------------------------------

TEST_CASE("an update that fails after a successful one of the same run is a separate failure, not a correction") {
    SupervisedLab lab;
    lab.startWithVK14("fault=stall@WTCTRLD#4"); // the last table of the second update
    updateOnce(lab);
    lab.beginUpdate();
    CHECK(lab.update().isOpen());
    CHECK_FALSE(lab.update().state.isReported);
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::succeeded, UpdateResult::tablesMissing});
    CHECK(lab.update().state.tablesWritten == 1);
    CHECK_FALSE(lab.update().verdict.isCorrected);
    const auto records = lab.records();
    REQUIRE(records.size() == 2);
    CHECK(records.at(0).verdicts.size() == 1);
    CHECK(records.at(0).verdicts.at(0).verdict == "tables missing");
    CHECK(records.at(1).verdicts.size() == 1);
    CHECK(records.at(1).verdicts.at(0).verdict == "succeeded");
}

TEST_CASE("a printer found in its loader after a successful update is judged by its second update") {
    std::string settings;
    UpdateResult expected = UpdateResult::succeeded;
    SUBCASE("which succeeds") {}
    SUBCASE("which does not write its last table") {
        settings = ",fault=stall@WTCTRLD#2";
        expected = UpdateResult::tablesMissing;
    }
    SUBCASE("whose image is not accepted") {
        settings = ",fault=stay-in-loader@FLASH_PROGRAM";
        expected = UpdateResult::imageNotTaken;
    }
    SupervisedLab lab;
    lab.startWithVK14("location=1-1");
    updateOnce(lab);
    updateFromLoader(lab, settings);
    lab.advance(100ms);
    CHECK(lab.update().isOpen()); // the first verdict does not apply to it
    CHECK(lab.update().state.phase == UpdatePhase::writing);
    CHECK(lab.update().state.tablesWritten == 0);
    CHECK_FALSE(lab.update().state.previousVersion == "VK14 01.60");
    CHECK(lab.kept.at(lab.printer()->locationNumber()));
    lab.rest(10min);
    CHECK(lab.ends == Results{UpdateResult::succeeded, expected});
    CHECK_FALSE(lab.update().verdict.isCorrected);
    CHECK(lab.update().state.imagesSent == 1);
    const auto records = lab.records();
    REQUIRE(records.size() == 2);
    CHECK(records.at(0).verdicts.size() == 1);
    CHECK(records.at(0).verdicts.at(0).verdict == nameOfResult(expected));
    CHECK(records.at(1).verdicts.size() == 1);
}

TEST_CASE("an update that was given up and dismissed is judged by itself when its printer returns") {
    std::string fault;
    UpdateResult expected = UpdateResult::succeeded;
    SUBCASE("and gets its tables") {}
    SUBCASE("and does not accept its last table") {
        fault = ",fault=stall@WTCTRLD#4";
        expected = UpdateResult::tablesMissing;
    }
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 5min});
    lab.startWithVK14("fault=never-back@FLASH_PROGRAM#2" + fault);
    updateOnce(lab); // its tables are the available ones afterwards
    const std::string key = lab.printer()->keyUSBdevice();
    lab.beginUpdate();
    lab.rest();
    REQUIRE(lab.result() == UpdateResult::notBack);
    lab.supervisor.dismiss(key);
    REQUIRE(lab.supervisor.updates().empty());
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::succeeded, UpdateResult::notBack, expected});
    CHECK_FALSE(lab.update().verdict.isCorrected);
    CHECK(lab.update().state.availableVersion == "VK14 01.61");
}

// ---- records that earlier attempts left open ------------------------------------------------------------------------

TEST_CASE("the record of a stalled update that is started again is closed by the success of the second one") {
    SupervisedLab lab;
    lab.startWithVK14(kSilentLoader);
    stallInLoader(lab);
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    const auto records = lab.records();
    REQUIRE(records.size() == 2);
    CHECK(records.at(1).verdicts.empty());
    CHECK(records.at(1).closedBy == records.at(0).id);
}

TEST_CASE("the record of a stalled update remains open when the second one fails, and is closed by a later success") {
    SupervisedLab lab;
    lab.startWithVK14(kSilentLoader + ",fault=stall@WTCTRLD#2");
    stallInLoader(lab);
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::tablesMissing);
    auto records = lab.records();
    REQUIRE(records.size() == 2);
    CHECK(records.at(1).verdicts.empty());
    CHECK_FALSE(records.at(1).closedBy);
    dismissAlerts(lab);
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    records = lab.records();
    REQUIRE(records.size() == 3);
    CHECK(records.at(2).closedBy == records.at(0).id);
}

TEST_CASE("an update that an earlier run did not end remains open until one succeeds") {
    SupervisedLab lab;
    lab.startWithVK14("fault=stall@WTCTRLD#2");
    lab.cutOffEarlierRun("color tables");
    const std::string available = lab.supervisor.interruptedText(*lab.printer());
    CHECK(available.starts_with("update was interrupted at "));
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::tablesMissing);
    CHECK_FALSE(lab.records().at(1).closedBy);
    CHECK(lab.supervisor.interruptedText(*lab.printer()) == available);
    dismissAlerts(lab);
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    const auto records = lab.records();
    REQUIRE(records.size() == 3);
    CHECK(records.at(2).closedBy == records.at(0).id);
    CHECK(lab.supervisor.interruptedText(*lab.printer()).empty());
}
