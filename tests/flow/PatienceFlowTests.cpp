// Texts while an update takes long, the time limits of the program, and the state after the end of an update.
#include "SupervisedLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace zul::test;
using namespace std::chrono_literals;

namespace {

using Equal = UpdateSupervisor::Equal;
using Results = std::vector<UpdateResult>;

// "after-update=" with the cover open for this many replies.
std::string coverOpen(int answers) {
    std::string statuses = "after-update=01000";
    for (int answer = 1; answer < answers; ++answer) statuses += ":01000";
    return statuses;
}

} // namespace

// ---- stalled, waiting, dismissed ------------------------------------------------------------------------------------

TEST_CASE("a loader that another program holds is waited for, and may be dismissed if that takes long") {
    SupervisedLab lab;
    lab.startWithVK14("fault=holder#3:600000");
    lab.beginUpdate();
    lab.advanceTo(UpdatePhase::loaderBack);
    lab.advance(10s);
    CHECK(lab.update().isWaiting);
    CHECK_FALSE(lab.update().mayBeDismissed);
    CHECK(lab.update().advice.starts_with("Close that program or wait until it has finished."));
    lab.advance(3min);
    CHECK(lab.update().isWaiting);
    CHECK_FALSE(lab.update().isStalled); // the printer itself is not unresponsive
    CHECK(lab.update().mayBeDismissed);
}

TEST_CASE("the advice about a stalled update disappears when its printer continues") {
    SupervisedLab lab;
    lab.startWithVK14("fault=never-back@FLASH_REWRITE");
    lab.beginUpdate();
    lab.rest(2min);
    REQUIRE(lab.update().isStalled);
    REQUIRE_FALSE(lab.update().advice.empty());
    lab.bus.plug(0);
    lab.rest(10ms);
    CHECK(lab.update().isOpen());
    CHECK_FALSE(lab.update().isStalled);
    CHECK_FALSE(lab.update().mayBeDismissed);
    CHECK(lab.update().advice.empty());
}

TEST_CASE("the advice about another location disappears when the printer is back at its own") {
    SupervisedLab lab;
    const std::size_t other = lab.comeBackElsewhere(",fault=never-back@FLASH_PROGRAM");
    REQUIRE(lab.update().advice.starts_with("The printer came back at 1-2 instead of 1-1."));
    lab.bus.unplug(other);
    lab.bus.plug(0);
    lab.rest(100ms);
    CHECK(lab.update().state.isAttached);
    CHECK(lab.update().advice.empty());
}

TEST_CASE("a pending question to the operator does not hide that the printer is unresponsive") {
    SupervisedLab lab;
    lab.startWithVK14("program=900000");
    lab.beginUpdate();
    lab.rest(5min);
    REQUIRE(lab.update().isStalled);
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    REQUIRE(lab.update().isAsking);
    REQUIRE_FALSE(lab.update().isStalled);
    lab.rest(5min);
    CHECK(lab.update().isAsking);
    CHECK(lab.update().isStalled);
}

TEST_CASE("the time of a question to the operator is not part of the wait for a printer that is not ready") {
    SupervisedLab lab;
    lab.startWithVK14("status=00000:01000");
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    lab.agree();
    lab.rest(1min);
    REQUIRE(lab.operatorDesk.title() == "Printer Not Ready");
    CHECK(lab.update().isAsking);
    CHECK_FALSE(lab.update().isWaiting);
    CHECK(lab.update().advice.empty());
}

TEST_CASE("a printer that is not ready is reported as early as an unresponsive one if the time is set") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.stallAfter = 2s});
    lab.startWithVK14(coverOpen(100) + ":00000");
    lab.beginUpdate();
    lab.advanceTo(UpdatePhase::restarted);
    lab.advance(1s);
    CHECK_FALSE(lab.update().isWaiting);
    lab.advance(2s);
    CHECK(lab.update().isWaiting);
}

TEST_CASE("the machine is kept awake from the order to the end, but not for a dismissed update") {
    SupervisedLab lab;
    lab.startWithVK14("fault=never-back@FLASH_REWRITE");
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    CHECK_FALSE(lab.isKeptAwake);
    lab.agree();
    REQUIRE(lab.operatorDesk.press(lab.operatorDesk.buttons().at(1)));
    lab.rest(1s);
    CHECK(lab.isKeptAwake);
    lab.rest(2min);
    lab.supervisor.dismiss(lab.update().state.key);
    CHECK_FALSE(lab.isKeptAwake);
    lab.rest(1s);
    lab.bus.plug(0);
    lab.rest(1s);
    CHECK(lab.isKeptAwake);
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK_FALSE(lab.isKeptAwake);
}

TEST_CASE("ended and dismissed updates are not part of the total progress or of what a stop must wait for") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 10min});
    lab.startWithVK14("fault=never-back@FLASH_REWRITE");
    CHECK(lab.supervisor.progress() == 1);
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    const double atBeginning = lab.supervisor.progress();
    CHECK(atBeginning < 0.5);
    CHECK_FALSE(lab.supervisor.isAnyBetweenCommands()); // no command was sent yet
    lab.agree();
    REQUIRE(lab.operatorDesk.press(lab.operatorDesk.buttons().at(1)));
    lab.rest(2min);
    CHECK(lab.supervisor.isAnyBetweenCommands());
    CHECK(lab.supervisor.progress() > atBeginning);
    CHECK(lab.supervisor.progress() < 1);
    lab.supervisor.dismiss(lab.update().state.key);
    CHECK(lab.supervisor.progress() == 1);
    CHECK(lab.supervisor.isAnyBetweenCommands()); // hidden, but the printer still needs the rest
    lab.rest(20min);
    REQUIRE(lab.result() == UpdateResult::notBack);
    CHECK(lab.update().state.mustNotBeStopped());
    CHECK_FALSE(lab.supervisor.isAnyBetweenCommands());
    CHECK(lab.supervisor.progress() == 1);
}

// ---- the end --------------------------------------------------------------------------------------------------------

TEST_CASE("a refused image gets its verdict only after its loader was queried") {
    SupervisedLab lab;
    lab.startWithVK14("fault=stall@FLASH_PROGRAM,fault=silence@STATUS#5");
    lab.beginUpdate();
    for (int step = 0; step < 3000 && !lab.update().state.refused; ++step) lab.advance(10ms);
    REQUIRE(lab.update().state.refused);
    lab.advance(1s);
    CHECK_FALSE(lab.update().state.isRefusalAnswered);
    CHECK(lab.update().isOpen());
    lab.rest(1min);
    CHECK(lab.result() == UpdateResult::imageNotTaken);
}

TEST_CASE("a printer detached after the report gets its verdict at once") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@SERIAL_NUMBER#2"); // the last queries take five seconds
    lab.beginUpdate();
    for (int step = 0; step < 3000 && !lab.update().state.isReported; ++step) lab.advance(50ms);
    REQUIRE(lab.update().isOpen());
    lab.bus.unplug(0);
    lab.advance(100ms);
    CHECK(lab.result() == UpdateResult::succeeded);
}

TEST_CASE("an update given up while its printer was not ready is completed when it is") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 20s});
    lab.startWithVK14(coverOpen(120) + ":00000"); // for a minute
    lab.beginUpdate();
    lab.rest(40s);
    REQUIRE(lab.ends == Results{UpdateResult::notBack});
    CHECK(lab.update().verdict.reason == "the printer reports: Cover Open");
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::notBack, UpdateResult::succeeded});
    CHECK(lab.timesSeen("TBL_WTCTRLD_UPDATE_CW") == 2);
}

TEST_CASE("a stopped update is reported as stopped, whatever else delays its printer") {
    SupervisedLab lab;
    SUBCASE("it is held by another program") {
        lab.startWithVK14("fault=holder#3:600000");
        lab.beginUpdate();
        lab.rest(90s);
        REQUIRE(lab.update().isWaiting);
    }
    SUBCASE("it is at another location") {
        lab.startWithVK14("fault=elsewhere@FLASH_REWRITE");
        lab.beginUpdate();
        lab.rest(90s);
        REQUIRE(lab.update().cameBackAt == "1-2");
    }
    lab.supervisor.requestStop();
    lab.advance(61s);
    CHECK(lab.result() == UpdateResult::stopped);
    CHECK(lab.update().verdict.reason == "the program was asked to end");
    CHECK_FALSE(lab.update().verdict.holder);
    CHECK_FALSE(lab.update().isStalled);
    CHECK_FALSE(lab.update().isWaiting);
    CHECK_FALSE(lab.update().mayBeDismissed);
}

TEST_CASE("an earlier interruption is the reason only for an unresponsive printer that waits for the rest of its "
          "image") {
    SupervisedLab lab;
    SUBCASE("a printer that replies is declined for its own reason") {
        lab.startWithVK14();
        lab.cutOffEarlierRun("writing");
        lab.supervisor.begin(lab.printer(), Equal::install);
        lab.rest(1s);
        REQUIRE(lab.operatorDesk.press("Quit"));
        lab.rest(1s);
        CHECK(lab.result() == UpdateResult::declined);
        CHECK(lab.update().verdict.reason == "it was declined");
    }
    SUBCASE("an unresponsive one whose tables were being written is reported as unresponsive") {
        lab.startWithVK14("fault=silence@STATUS#2,fault=silence@STATUS#3");
        lab.cutOffEarlierRun("color tables");
        lab.supervisor.begin(lab.printer(), Equal::install);
        lab.rest(1s);
        lab.agree();
        lab.rest();
        CHECK(lab.result() == UpdateResult::unanswered);
        CHECK(lab.update().verdict.reason == "the printer does not answer");
    }
}
