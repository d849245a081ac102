// Restarts that are not as polite as usual, each with its verdict: never an image to the wrong printer, never two to
// one restart.
#include "SupervisedLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

constexpr const char* kImage = "FW_UPDFLASH_PROGRAM";

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
    CHECK(lab.ends == std::vector<UpdateResult>{UpdateResult::succeeded});
    CHECK(lab.timesSeen(kImage) == 1);
}

TEST_CASE("a loader that leaves and comes back once more gets one image") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.beginUpdate();
    lab.advanceTo(UpdatePhase::loaderBack);
    lab.bus.unplug(0);
    lab.advance(1s);
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.ends == std::vector<UpdateResult>{UpdateResult::succeeded});
    CHECK(lab.timesSeen(kImage) == 1);
}

TEST_CASE("a printer that comes back twice with its new firmware gets no second image") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.beginUpdate();
    lab.advanceTo(UpdatePhase::restarting);
    lab.advance(1900ms); // it comes back after two seconds
    lab.bus.unplug(0);
    lab.advance(1s);
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.timesSeen(kImage) == 1);
}

TEST_CASE("another printer of the model at the same port gets no image") {
    SupervisedLab lab;
    lab.startWithVK14("location=1-1,fault=never-back@FLASH_REWRITE");
    UpdateSettings settings;
    settings.giveUpAfter = 3min;
    lab.supervisor.setSettings(settings);
    lab.beginUpdate();
    lab.advance(3s);
    lab.attach("VK14,serial=999999,location=1-1");
    lab.rest(5min);
    CHECK(lab.timesSeen(kImage) == 0);
    CHECK(lab.result() == UpdateResult::notBack);
    CHECK(lab.update().verdict.reason == "the printer that is attached at its place is not in its loader (Idle)");
    CHECK(lab.update().advice == "Check that this is the printer whose update was begun, then start the update again.");
}
