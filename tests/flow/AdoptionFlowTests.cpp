// Updates that were not started through begin(): from the alert about a printer in its loader, and by a printer that
// continues although its update was dismissed. The supervisor reserves, records and follows them like any other.
#include "SupervisedLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Results = std::vector<UpdateResult>;

// A printer that is attached for the second time is known, so its loader is reported.
void startWithKnownLoader(SupervisedLab& lab, const std::string& settings = {}) {
    lab.startWithVK14("mode=loader" + settings);
    lab.bus.unplug(0);
    lab.rest();
    lab.bus.plug(0);
    lab.rest();
    REQUIRE(lab.operatorDesk.title() == "Attention:");
    REQUIRE(lab.operatorDesk.buttons() == std::vector<std::string>{"Ignore", "Update Firmware"});
    lab.forgetWire();
}

} // namespace

TEST_CASE("a loader that the operator ignores does not start an update") {
    SupervisedLab lab;
    startWithKnownLoader(lab);
    REQUIRE(lab.operatorDesk.press("Ignore"));
    lab.rest();
    CHECK(lab.supervisor.updates().empty());
    CHECK(lab.newestRecord().id == 0);
    CHECK_FALSE(lab.locks.ask(lab.printer()->keyUSBdevice()));
    CHECK(lab.wire().empty());
}

TEST_CASE("a printer found in its loader gets its image only after the record of its update is stored") {
    SupervisedLab lab;
    startWithKnownLoader(lab);
    const std::string key = lab.printer()->keyUSBdevice();
    const auto isImageOnItsWay = [&] { return lab.logged("device is in firmware update mode ... uploading firmware"); };
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
    CHECK_FALSE(isImageOnItsWay());
    CHECK(lab.update().state.key == key);
    CHECK(lab.changes > 0);
    CHECK(lab.locks.ask(key));
    CHECK(lab.newestRecord().key == key);
    lab.rest(100ms);
    CHECK(isImageOnItsWay());
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::succeeded});
    REQUIRE(lab.records().size() == 1);
    CHECK(lab.newestRecord().serial == "000001"); // the loader did not report it
}

TEST_CASE("after a replug the old question about a loader starts nothing, and the new question starts the update") {
    SupervisedLab lab;
    startWithKnownLoader(lab);
    lab.bus.unplug(0);
    lab.rest();
    lab.bus.plug(0);
    lab.rest();
    REQUIRE(lab.operatorDesk.waiting() == 2);
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
    lab.rest();
    CHECK(lab.supervisor.updates().empty());
    CHECK(lab.timesSeen("FW_UPDFLASH_PROGRAM") == 0);
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::succeeded});
    CHECK(lab.timesSeen("FW_UPDFLASH_PROGRAM") == 1);
}

TEST_CASE("the limit of a phase of a printer found in its loader comes from past updates of its model") {
    SupervisedLab lab;
    UpdateHistory history({.folder = lab.stateFolder.path});
    for (int count = 0; count < 3; ++count) {
        const auto begun = history.begin({.begun = 1, .key = "other", .model = "VK14"});
        CHECK(history.addPhase(begun.id, {.name = "restarting", .begun = 2, .duration = 100000}) == "");
        CHECK(history.complete(begun.id, {.given = 3, .verdict = "succeeded", .isSuccess = true}) == "");
    }
    startWithKnownLoader(lab, ",fault=never-back@FLASH_PROGRAM");
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
    lab.rest(150s); // longer than the two minutes of the table
    CHECK(lab.update().state.phase == UpdatePhase::restarting);
    CHECK_FALSE(lab.update().isStalled);
    lab.rest(100s);
    CHECK(lab.update().isStalled);
    CHECK(lab.update().advice.starts_with("The printer has not come back with the new firmware."));
}

TEST_CASE("a printer that continues its dismissed update is reserved until the end, and the update is recorded") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 5min});
    lab.startWithVK14("fault=never-back@FLASH_PROGRAM,fault=silence@TBL_RDVersion#3");
    const std::string key = lab.printer()->keyUSBdevice();
    lab.beginUpdate();
    lab.rest();
    REQUIRE(lab.result() == UpdateResult::notBack);
    lab.supervisor.dismiss(key);
    REQUIRE_FALSE(lab.locks.ask(key));
    lab.bus.plug(0);
    for (int step = 0; step < 1000 && lab.supervisor.updates().empty(); ++step) lab.advance(10ms);
    CHECK(lab.update().state.phase == UpdatePhase::colorTables);
    CHECK(lab.update().isOpen());
    CHECK(lab.locks.ask(key));
    CHECK(lab.kept.at(lab.printer()->locationNumber()));
    CHECK(lab.records().size() == 2);
    CHECK(lab.newestRecord().verdicts.empty());
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::notBack, UpdateResult::succeeded});
    CHECK(lab.newestRecord().verdicts.size() == 1);
}

TEST_CASE("a printer that is attached again after its update starts no new update") {
    SupervisedLab lab;
    lab.startWithVK14();
    const std::string key = lab.printer()->keyUSBdevice();
    lab.beginUpdate();
    lab.rest();
    REQUIRE(lab.operatorDesk.press("Finish"));
    lab.supervisor.dismiss(key);
    lab.bus.unplug(0);
    lab.rest();
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.rows() == 1);
    CHECK(lab.supervisor.updates().empty());
    CHECK(lab.records().size() == 1);
}

// ---- conditions that prevent it -------------------------------------------------------------------------------------

TEST_CASE("a printer found in its loader gets no image where no update may begin") {
    ChangedSamples samples;
    SupervisedLab lab(samples.folder());
    startWithKnownLoader(lab);
    UpdateResult expected = UpdateResult::cannotFollow;
    SUBCASE("its return would not be noticed") {
        lab.areArrivalsSeen = false;
    }
    SUBCASE("a color table is damaged") {
        samples.damage("VK14_600_0161.cwd");
        expected = UpdateResult::badFiles;
    }
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
    lab.rest();
    CHECK(lab.ends == Results{expected});
    CHECK(lab.update().verdict.isUntouched());
    CHECK_FALSE(lab.update().verdict.reason.empty());
    CHECK(lab.wire().empty());
    CHECK(lab.operatorDesk.waiting() == 0); // a power cycle would not help
    CHECK_FALSE(lab.locks.ask(lab.printer()->keyUSBdevice()));
}

TEST_CASE("a printer found in its loader gets no image once its update was stopped") {
    SupervisedLab lab;
    startWithKnownLoader(lab);
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
    lab.supervisor.requestStop(); // its record is being stored
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::stopped});
    CHECK(lab.update().verdict.isUntouched());
    CHECK(lab.wire().empty());
}

TEST_CASE("answering a question about a loader after its update has begun starts no second update") {
    SupervisedLab lab;
    startWithKnownLoader(lab);
    lab.supervisor.begin(lab.printer(), UpdateSupervisor::Equal::install);
    lab.rest(1s);
    REQUIRE(lab.operatorDesk.waiting() == 2);
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
    CHECK(lab.notes == std::vector<std::string>{"This printer is being updated."});
    lab.agree();
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::succeeded});
    CHECK(lab.timesSeen("FW_UPDFLASH_PROGRAM") == 1);
    CHECK(lab.records().size() == 1);
}

TEST_CASE("answering a question about a loader after its update has stalled starts the update again") {
    SupervisedLab lab;
    startWithKnownLoader(lab);
    lab.supervisor.begin(lab.printer(), UpdateSupervisor::Equal::install);
    lab.rest(1s);
    REQUIRE(lab.operatorDesk.waiting() == 2);
    lab.happens(events::ProgressStored{.value = 2}); // as if its image had been begun
    lab.rest(1min);
    REQUIRE(lab.update().isStalled);
    REQUIRE(lab.update().state.phase == UpdatePhase::writing);
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
    CHECK(lab.update().state.phase == UpdatePhase::checking);
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::succeeded});
    CHECK(lab.update().state.imagesSent == 1);
}
