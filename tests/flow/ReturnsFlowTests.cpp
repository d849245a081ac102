// What the supervisor makes of printers that return: at another place, late, unrecognised, or to files that were
// replaced meanwhile.
#include "SupervisedLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Results = std::vector<UpdateResult>;
constexpr const char* kImage = "FW_UPDFLASH_PROGRAM";

// An event of the attached printer, before anything else happens.
void reports(SupervisedLab& lab, PrinterEvent::What what) {
    const auto printer = lab.printer();
    lab.supervisor.printerEvent({.key = printer->keyUSBdevice(),
                                 .location = printer->locationText(),
                                 .attachment = printer->creationToken(),
                                 .what = std::move(what)});
}

// Another printer is attached where the updated one was, and the engine has reported the end of the update. What that
// printer has answered looks like a success; its answer for the serial number is late.
void upToReportOfStranger(SupervisedLab& lab) {
    lab.startWithVK14("location=1-1");
    lab.beginUpdate();
    lab.advanceTo(UpdatePhase::restarting);
    lab.bus.unplug(0);
    lab.rest(5s);
    lab.attach("VK14,serial=999999,location=1-1,firmware=VK14 01.61,tables=0161,fault=silence@SERIAL_NUMBER");
    for (int step = 0; step < 100'000 && !lab.update().state.isReported; ++step) lab.advance(1ms);
    lab.advance(1s);
    REQUIRE(lab.update().state.isReported);
    REQUIRE(lab.update().isOpen());
}

} // namespace

TEST_CASE("the recorded other location is dropped when the printer is back at its own") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 5min});
    const std::size_t other = lab.comeBackElsewhere(",fault=never-back@FLASH_PROGRAM");
    lab.bus.unplug(other);
    lab.rest(1s);
    CHECK(lab.update().cameBackAt == "");
    lab.bus.plug(0);
    lab.rest(15min);
    CHECK(lab.timesSeen(kImage) == 1);
    CHECK(lab.ends == Results{UpdateResult::notBack});
    CHECK(lab.update().verdict.reason == "the printer did not come back");
}

TEST_CASE("the recorded other location is dropped as soon as the printer itself appears, also if that one is still "
          "occupied") {
    SupervisedLab lab;
    lab.comeBackElsewhere();
    lab.bus.plug(0);
    lab.advance(1ms);
    CHECK(lab.update().state.isAttached);
    CHECK(lab.update().cameBackAt == "");
}

TEST_CASE("a stop makes no success of a printer that has not been asked for its serial number") {
    SupervisedLab lab;
    upToReportOfStranger(lab);
    lab.supervisor.requestStop();
    CHECK(lab.ends == Results{UpdateResult::stopped});
}

TEST_CASE("a printer whose questions were cut short before its serial number is asked once more") {
    SupervisedLab lab;
    upToReportOfStranger(lab);
    reports(lab, events::QuestionsEnded{.isComplete = false});
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::notBack});
    CHECK(lab.update().verdict.reason == "another printer (serial number 999999) is attached at its location");
}

TEST_CASE("a loader that was left for damaged files is judged once per return, and completed when they are replaced") {
    ChangedSamples archive;
    SupervisedLab lab(archive.folder());
    lab.startWithVK14("restart=5000");
    lab.beginUpdate();
    lab.advance(1s);
    REQUIRE(lab.rows() == 0);
    const std::string image = "VK14 01.61.fw";
    archive.damage(image);
    lab.rest();
    REQUIRE(lab.ends == Results{UpdateResult::badFiles});
    const auto replug = [&lab] {
        while (!lab.operatorDesk.title().empty()) REQUIRE(lab.operatorDesk.press("OK"));
        lab.bus.unplug(0);
        lab.rest(1s);
        lab.bus.plug(0);
        lab.rest();
    };
    replug();
    CHECK(lab.ends == Results{UpdateResult::badFiles, UpdateResult::badFiles});
    CHECK(lab.timesSeen(kImage) == 0);
    std::filesystem::copy_file(Lab::sampleArchive() / image, archive.folder() / image,
                               std::filesystem::copy_options::overwrite_existing);
    replug();
    CHECK(lab.ends == Results{UpdateResult::badFiles, UpdateResult::badFiles, UpdateResult::succeeded});
    CHECK(lab.timesSeen(kImage) == 1);
}

TEST_CASE("a printer whose version is missing is asked for it once more before its update begins") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@FVER,fault=silence@FVER#2");
    REQUIRE_FALSE(lab.printer()->firmwareVersion());
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::succeeded});
    CHECK(lab.update().state.previousVersion == "VK14 01.60");
}
