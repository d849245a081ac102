// Updates whose printer was ordered into the loader: it is no longer called untouched, values read before prove
// nothing, and a printer that continues after all is followed again.
#include "SupervisedLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Equal = UpdateSupervisor::Equal;
using Results = std::vector<UpdateResult>;

std::string silences(const char* word, int first, int last) {
    std::string faults;
    for (int question = first; question <= last; ++question) {
        faults += ",fault=silence@" + std::string(word) + "#" + std::to_string(question);
    }
    return faults;
}

} // namespace

// ---- untouched or not -----------------------------------------------------------------------------------------------

TEST_CASE("a printer whose files are damaged is untouched before the order, but not after it") {
    ChangedSamples samples;
    SupervisedLab lab(samples.folder());
    lab.startWithVK14();
    bool isOrdered = false;
    SUBCASE("before it") {
        samples.damage("VK14 01.61.fw");
        lab.supervisor.begin(lab.printer(), Equal::install);
    }
    SUBCASE("after it") {
        lab.beginUpdate();
        lab.advanceTo(UpdatePhase::loaderAway);
        samples.damage("VK14 01.61.fw");
        isOrdered = true;
    }
    lab.rest();
    CHECK(lab.result() == UpdateResult::badFiles);
    CHECK(lab.update().verdict.isAfterOrder == isOrdered);
    CHECK(lab.update().verdict.isUntouched() != isOrdered);
}

TEST_CASE("a printer that another program holds in its loader is busy, but not untouched") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 1min});
    lab.startWithVK14("fault=holder#3:600000"); // the open of the loader
    lab.beginUpdate();
    lab.rest(2min);
    CHECK(lab.result() == UpdateResult::busy);
    CHECK(lab.update().state.phase == UpdatePhase::loaderBack);
    CHECK(lab.update().verdict.isAfterOrder);
    CHECK_FALSE(lab.update().verdict.isUntouched());
    REQUIRE(lab.update().verdict.holder);
    CHECK(lab.update().verdict.holder->program == "another program");
}

TEST_CASE("a version that was read before the order does not make the update a success") {
    SupervisedLab lab;
    lab.startWithVK14("firmware=VK14 01.61,tables=0161" + silences("FVER", 3, 8));
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::versionUnread);
    CHECK(lab.update().state.previousVersion == "VK14 01.61");
    CHECK_FALSE(lab.update().state.currentVersion);
    CHECK(lab.update().verdict.isAfterOrder);
}

TEST_CASE("an unresponsive printer that was cut off during its image has not taken it") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 1min});
    lab.startWithVK14("fault=unplug@FLASH_PROGRAM" + silences("STATUS", 5, 60));
    lab.beginUpdate();
    lab.advanceTo(UpdatePhase::restarted);
    CHECK(lab.update().state.isImageInDoubt());
    lab.rest(5min);
    CHECK(lab.ends == Results{UpdateResult::imageNotTaken});
    CHECK(lab.update().verdict.reason ==
          "the transfer of the firmware was interrupted, and the printer waits for the rest of it");
    CHECK(lab.update().advice.starts_with("Switch the printer off and on"));
}

TEST_CASE("an unresponsive printer that has its image is not back, whatever its tables are") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 1min});
    lab.startWithVK14(silences("STATUS", 6, 60).substr(1) + silences("FVER", 3, 20));
    lab.beginUpdate();
    lab.advanceTo(UpdatePhase::restarted);
    CHECK_FALSE(lab.update().state.isImageInDoubt());
    lab.rest(5min);
    REQUIRE_FALSE(lab.ends.empty());
    CHECK(lab.ends.front() == UpdateResult::notBack);
}

TEST_CASE("a printer that is back and unresponsive is not offered as a loader because of its last status") {
    SupervisedLab lab(Lab::sampleArchive(), /*hasHistory=*/false);
    lab.supervisor.setSettings({.giveUpAfter = 1min});
    lab.startWithVK14(silences("STATUS", 6, 60).substr(1) + silences("FVER", 3, 20));
    lab.beginUpdate();
    lab.advanceTo(UpdatePhase::restarted);
    lab.advance(2min);
    REQUIRE_FALSE(lab.ends.empty());
    REQUIRE(lab.printer()->printerStatus() == "Firmware Update Mode");
    CHECK(lab.supervisor.interruptedText(*lab.printer()) == "");
}

TEST_CASE("a second image may be sent only to a stalled printer that has taken its image") {
    std::string faults;
    UpdatePhase phase = UpdatePhase::checking;
    bool mayGetImage = false;
    std::string reason;
    SUBCASE("not to one whose loader is unresponsive") {
        faults = silences("STATUS", 4, 60);
        phase = UpdatePhase::loaderBack;
    }
    SUBCASE("not to one that is back and unresponsive: its status is still that of its loader") {
        faults = silences("STATUS", 6, 60) + silences("FVER", 3, 20);
        phase = UpdatePhase::restarted;
        reason = "This printer does not answer. Switch it off and on: its update continues.";
    }
    SUBCASE("one that does not leave after its image") {
        faults = ",program=900000";
        phase = UpdatePhase::programming;
        mayGetImage = true;
    }
    SupervisedLab lab;
    lab.startWithVK14(faults.substr(1));
    lab.beginUpdate();
    const std::string key = lab.update().state.key;
    lab.advanceTo(phase);
    CHECK_FALSE(lab.supervisor.mayGetSecondImage(key));
    lab.advance(200s);
    CHECK(lab.update().state.phase == phase);
    CHECK(lab.update().isStalled);
    CHECK(lab.supervisor.mayGetSecondImage(key) == mayGetImage);
    CHECK(lab.supervisor.reasonAgainst(key) == reason);
    CHECK(lab.supervisor.reasonAgainstActions(key) == "This printer is being updated.");
    lab.supervisor.dismiss(key);
    const bool isAvailable = !lab.supervisor.interruptedText(*lab.printer()).empty();
    CHECK(isAvailable == mayGetImage);
    if (reason.empty()) return;
    const std::size_t questions = lab.operatorDesk.history().size();
    lab.supervisor.begin(lab.printer(), UpdateSupervisor::Equal::install);
    lab.rest(10s);
    CHECK(lab.operatorDesk.history().size() == questions);
    CHECK(lab.timesSeen("FW_UPDFLASH_PROGRAM") == 1);
}

// ---- followed again -------------------------------------------------------------------------------------------------

TEST_CASE("a printer that returns after its update was given up is reserved and kept again until the end") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 20s});
    lab.startWithVK14("fault=never-back@FLASH_REWRITE");
    const std::string key = lab.printer()->keyUSBdevice();
    const std::uint32_t location = lab.printer()->locationNumber();
    lab.beginUpdate();
    lab.rest(1min);
    REQUIRE(lab.result() == UpdateResult::notBack);
    REQUIRE_FALSE(lab.update().advice.empty());
    CHECK_FALSE(lab.locks.ask(key));
    CHECK_FALSE(lab.kept.at(location));
    lab.bus.plug(0);
    lab.rest(100ms);
    CHECK(lab.update().isOpen());
    CHECK(lab.update().advice.empty());
    CHECK(lab.kept.at(location));
    CHECK(lab.locks.ask(key));
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::notBack, UpdateResult::succeeded});
    CHECK_FALSE(lab.locks.ask(key));
    CHECK_FALSE(lab.kept.at(location));
}

TEST_CASE(
    "an update that was given up because another program held the loader continues when that program releases it") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 1min});
    lab.startWithVK14("fault=holder#3:300000");
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::busy, UpdateResult::succeeded});
    CHECK(lab.update().verdict.isCorrected);
    CHECK_FALSE(lab.update().verdict.holder);
    CHECK(lab.timesSeen("FW_UPDFLASH_PROGRAM") == 1);
}

TEST_CASE("an update that is followed again is monitored: it stalls and is given up like any other") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 5min});
    lab.startWithVK14("fault=never-back@FLASH_REWRITE,fault=never-back@FLASH_PROGRAM");
    lab.beginUpdate();
    lab.rest(10min);
    REQUIRE(lab.ends == Results{UpdateResult::notBack});
    lab.bus.plug(0);
    lab.rest(3min);
    CHECK(lab.update().isOpen());
    CHECK(lab.update().isStalled);
    lab.rest(10min);
    CHECK(lab.ends == Results{UpdateResult::notBack, UpdateResult::notBack});
    CHECK(lab.update().state.phase == UpdatePhase::restarting);
}
