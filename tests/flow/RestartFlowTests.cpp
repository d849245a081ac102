// Unusual restarts, each with its verdict: never an image to the wrong printer, never two images for one restart.
#include "SupervisedLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Results = std::vector<UpdateResult>;

constexpr const char* kImage = "FW_UPDFLASH_PROGRAM";
constexpr const char* kTable = "TBL_WTCTRLD_UPDATE_CW";

// Starts an update, unplugs its printer in this phase, and does not plug it in again.
void startUpTo(SupervisedLab& lab, UpdatePhase phase) {
    lab.startWithVK14("location=1-1");
    lab.beginUpdate();
    lab.advanceTo(phase);
    lab.bus.unplug(0);
    lab.rest(5s);
}

} // namespace

TEST_CASE("a printer may take any time for its restarts") {
    const char* time = "";
    SUBCASE("none") {
        time = "restart=0";
    }
    SUBCASE("a tenth of a second") {
        time = "restart=100";
    }
    SUBCASE("five seconds") {
        time = "restart=5000";
    }
    SUBCASE("a minute") {
        time = "restart=60000";
    }
    SupervisedLab lab;
    lab.startWithVK14(time);
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::succeeded});
    CHECK(lab.timesSeen(kImage) == 1);
}

TEST_CASE("a loader that is detached and returns once more gets one image") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.beginUpdate();
    lab.advanceTo(UpdatePhase::loaderBack);
    lab.bus.unplug(0);
    lab.advance(1s);
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::succeeded});
    CHECK(lab.timesSeen(kImage) == 1);
}

TEST_CASE("a printer that returns twice with its new firmware gets no second image") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.beginUpdate();
    lab.advanceTo(UpdatePhase::restarting);
    lab.advance(1900ms); // it returns after two seconds
    lab.bus.unplug(0);
    lab.advance(1s);
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.timesSeen(kImage) == 1);
}

// ---- the same printer, changed --------------------------------------------------------------------------------------

TEST_CASE("a printer that returns on another port gets no image there, and is reported with both locations") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 5min});
    const char* fault = "";
    std::ptrdiff_t images = 0;
    SUBCASE("after the order") {
        fault = "fault=elsewhere@FLASH_REWRITE";
    }
    SUBCASE("after the image") {
        fault = "fault=elsewhere@FLASH_PROGRAM";
        images = 1;
    }
    lab.startWithVK14(fault);
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::notBack});
    CHECK(lab.update().verdict.reason == "the printer came back at 1-2 instead of 1-1");
    CHECK(lab.timesSeen(kImage) == images);
    CHECK(lab.timesSeen(kTable) == 0);
}

TEST_CASE("a printer that returns with its old version after the image is not updated") {
    SupervisedLab lab;
    startUpTo(lab, UpdatePhase::restarting);
    lab.attach("VK14,location=1-1,serial=000001,firmware=VK14 01.60");
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::otherVersion});
    CHECK(lab.update().verdict.reason == "the printer reports VK14 01.60 after the update instead of VK14 01.61");
    CHECK(lab.timesSeen(kImage) == 1);
}

TEST_CASE("a printer that returns in its loader after the image gets no second one by itself") {
    SupervisedLab lab;
    lab.startWithVK14("fault=stay-in-loader@FLASH_PROGRAM");
    lab.beginUpdate();
    lab.rest(10min);
    CHECK(lab.ends == Results{UpdateResult::imageNotTaken});
    CHECK(lab.timesSeen(kImage) == 1);
}

// ---- another printer ------------------------------------------------------------------------------------------------

TEST_CASE("another printer at the same location after the order gets no image by itself") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 3min});
    startUpTo(lab, UpdatePhase::loaderAway);
    SUBCASE("it is in normal mode") {
        lab.attach("VK14,serial=999999,location=1-1");
        lab.advance(2min);
        CHECK(lab.update().advice ==
              "The printer that is attached at its location is not in its loader (Idle). Check that "
              "this is the printer whose update was begun. If it is, switch it off and on, then "
              "start the update again.");
        lab.rest(10min);
        CHECK(lab.update().verdict.reason ==
              "the printer that is attached at its location is not in its loader (Idle)");
        CHECK(lab.update().advice ==
              "Check that this is the printer whose update was begun, then start the update again.");
    }
    SUBCASE("it is in its loader, and its device ID has another serial number: its operator is asked") {
        lab.attach("VK14,serial=999999,location=1-1,mode=loader");
        lab.advance(10s); // a loader does not answer for its version
        CHECK(lab.update().verdict.reason == "another printer (serial number 999999) is attached at its location");
        CHECK(lab.update().advice == "Attach the printer whose update was begun, and start its update again.");
        CHECK(lab.operatorDesk.title() == "Attention:");
        CHECK(lab.operatorDesk.buttons() == std::vector<std::string>{"Ignore", "Update Firmware"});
    }
    CHECK(lab.ends == Results{UpdateResult::notBack});
    CHECK(lab.timesSeen(kImage) == 0);
}

TEST_CASE("another printer's loader is updated when its operator wants that, and the first update stays a failure") {
    SupervisedLab lab;
    startUpTo(lab, UpdatePhase::loaderAway);
    lab.attach("VK14,serial=999999,location=1-1,mode=loader");
    lab.rest(10s);
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
    lab.rest();
    CHECK(lab.timesSeen(kImage) == 1);
    CHECK(lab.ends == Results{UpdateResult::notBack, UpdateResult::succeeded});
}

TEST_CASE("the printer that was replaced for a while continues its update when it is attached again") {
    SupervisedLab lab;
    startUpTo(lab, UpdatePhase::loaderAway);
    const std::size_t other = lab.attach("VK14,serial=999999,location=1-1,mode=loader");
    lab.rest(10s);
    REQUIRE(lab.ends == Results{UpdateResult::notBack});
    lab.bus.unplug(other);
    lab.rest(1s);
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.timesSeen(kImage) == 1);
    CHECK(lab.ends == Results{UpdateResult::notBack, UpdateResult::succeeded});
}

TEST_CASE("another printer at the same location after the image does not make its update a success") {
    SupervisedLab lab;
    startUpTo(lab, UpdatePhase::restarting);
    SUBCASE("not even with the right version") {
        lab.attach("VK14,serial=999999,location=1-1,firmware=VK14 01.61,tables=0161");
    }
    SUBCASE("nor with an old version") {
        lab.attach("VK14,serial=999999,location=1-1,firmware=VK14 01.60");
    }
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::notBack});
    CHECK(lab.update().verdict.reason == "another printer (serial number 999999) is attached at its location");
    CHECK(lab.timesSeen(kImage) == 1);
    CHECK(lab.operatorDesk.title() == "The update is not complete.");
}

TEST_CASE("another printer's loader at the same location after the image gets no image") {
    SupervisedLab lab;
    startUpTo(lab, UpdatePhase::restarting);
    lab.attach("VK14,serial=999999,location=1-1,mode=loader");
    lab.rest(10min);
    CHECK(lab.ends == Results{UpdateResult::imageNotTaken});
    CHECK(lab.timesSeen(kImage) == 1);
}

TEST_CASE("another printer at another location gets no command, whatever it is") {
    UpdatePhase phase = UpdatePhase::loaderAway;
    std::ptrdiff_t images = 0;
    SUBCASE("after the order") {}
    SUBCASE("after the image") {
        phase = UpdatePhase::restarting;
        images = 1;
    }
    for (const char* mode : {"normal", "loader"}) {
        CAPTURE(mode);
        SupervisedLab lab;
        lab.supervisor.setSettings({.giveUpAfter = 3min});
        startUpTo(lab, phase);
        lab.attach(std::string("VK14,serial=999999,location=1-2,mode=") + mode);
        lab.rest(10min);
        CHECK(lab.ends == Results{UpdateResult::notBack});
        CHECK(lab.update().verdict.reason == "the printer did not come back");
        CHECK(lab.timesSeen(kImage) == images);
        CHECK(lab.timesSeen(kTable) == 0);
    }
}
