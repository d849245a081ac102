// Updates of slow printers: when advice is due, what is waited for, and what may be started or dismissed meanwhile.
#include "SupervisedLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Equal = UpdateSupervisor::Equal;

} // namespace

TEST_CASE("advice is due when a phase has reached its limit, and a late return is a success like any other") {
    SupervisedLab lab;
    lab.startWithVK14("fault=never-back@FLASH_REWRITE");
    lab.beginUpdate();
    lab.rest(30s);
    CHECK_FALSE(lab.update().isStalled);
    CHECK(lab.update().advice.empty());
    lab.rest(2min);
    CHECK(lab.update().isStalled);
    CHECK(lab.update().advice.starts_with("The printer has not restarted into its loader."));
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.update().advice.empty());
}

TEST_CASE("the time until advice can be set, and an update without progress ends if that is requested") {
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

TEST_CASE("a printer that replies but is not ready gets advice with its status, and continues by itself") {
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

TEST_CASE("a printer that returns at another location is reported with both locations, and gets no image") {
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

TEST_CASE("an unresponsive printer is detected although other printers send events all the time") {
    SupervisedLab lab;
    lab.attach("VK14,after-update=01000");
    lab.attach("VK14,fault=never-back@FLASH_REWRITE");
    lab.start();
    const std::string silent = lab.printer(1)->keyUSBdevice();
    lab.beginAllUpdates();
    lab.rest(3min);
    CHECK(lab.supervisor.updates().at(silent).isStalled);
    CHECK_FALSE(lab.supervisor.updates().begin()->second.isStalled);
}

TEST_CASE("another update of a printer is refused while one is running, and allowed when that has stalled") {
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

TEST_CASE("a dismissed update is hidden until it continues, and an ended one is forgotten") {
    SupervisedLab lab;
    lab.startWithVK14("fault=never-back@FLASH_REWRITE");
    lab.beginUpdate();
    lab.rest(1s);
    const std::string key = lab.update().state.key;
    lab.supervisor.dismiss(key); // refused: it is running
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

TEST_CASE("a printer that replies while its phase exceeds the limit is late: its operator is notified, and it is not "
          "started again") {
    SupervisedLab lab;
    lab.startWithVK14("program=900000");
    lab.beginUpdate();
    lab.advanceTo(UpdatePhase::programming);
    const std::string key = lab.update().state.key;
    const auto answerFor = [&](Clock::Duration span) {
        for (; span > 0s; span -= 10s) {
            lab.advance(10s);
            lab.happens(events::ReplyRead{.text = "00000"});
        }
    };
    answerFor(170s);
    CHECK_FALSE(lab.update().isLate);
    CHECK(lab.update().advice.empty());
    CHECK_FALSE(lab.update().mayBeDismissed);
    answerFor(20s);
    CHECK(lab.update().isLate);
    CHECK_FALSE(lab.update().isStalled);
    CHECK(lab.update().advice ==
          "This takes longer than usual. The printer has the firmware and has not restarted yet. Leave it switched "
          "on.");
    CHECK(lab.update().mayBeDismissed);
    CHECK_FALSE(lab.supervisor.reasonAgainst(key).empty());
    CHECK_FALSE(lab.supervisor.mayGetSecondImage(key));
    lab.supervisor.dismiss(key);
    CHECK(lab.supervisor.interruptedText(*lab.printer()) == ""); // it may not be started
    lab.rest(5min);                                              // then it becomes unresponsive
    CHECK_FALSE(lab.update().isLate);
    CHECK(lab.update().isStalled);
    CHECK(lab.supervisor.mayGetSecondImage(key));
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK_FALSE(lab.update().isLate);
}

TEST_CASE("a printer that is not ready or held by another program is waiting, not late") {
    SupervisedLab lab;
    SUBCASE("not ready") {
        std::string statuses = "01000";
        for (int answer = 0; answer < 300; ++answer) statuses += ":01000";
        lab.startWithVK14("after-update=" + statuses + ":00000");
    }
    SUBCASE("held") {
        lab.startWithVK14("fault=holder#3:600000");
    }
    lab.beginUpdate();
    lab.rest(2min);
    CHECK(lab.update().isWaiting);
    CHECK_FALSE(lab.update().isLate);
    CHECK_FALSE(lab.update().isStalled);
    CHECK(lab.update().mayBeDismissed);
}

TEST_CASE("a printer that another program claims before its update has begun is not waited for") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@STATUS,fault=silence@STATUS#2,fault=silence@STATUS#3");
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(100ms); // its status is being queried
    lab.happens(events::Opened{.code = kIOReturnExclusiveAccess});
    REQUIRE(lab.update().state.isHeldElsewhere());
    REQUIRE_FALSE(lab.update().isAsking);
    CHECK_FALSE(lab.update().isWaiting);
    CHECK(lab.update().advice.empty());
    lab.rest();
    CHECK(lab.result() == UpdateResult::busy);
}

TEST_CASE("a second image is begun only where a first one may be") {
    ChangedSamples samples;
    SupervisedLab lab(samples.folder());
    lab.startWithVK14("program=900000");
    lab.beginUpdate();
    lab.rest(5min);
    const std::string key = lab.update().state.key;
    REQUIRE(lab.supervisor.mayGetSecondImage(key));
    std::string note;
    SUBCASE("not if its return would not be noticed") {
        lab.areArrivalsSeen = false;
        note = "this machine does not report when printers leave and return. Start the device service (udev)";
    }
    SUBCASE("not with a damaged file") {
        samples.damage("VK14_600_0161.cwd");
        note = "VK14_600_0161.cwd";
    }
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    CHECK(lab.operatorDesk.waiting() == 0);
    CHECK(lab.update().isOpen());
    CHECK(lab.update().isStalled);
    REQUIRE(lab.notes.size() == 1);
    CHECK(lab.notes.front().find(note) != std::string::npos);
    lab.rest();
    CHECK(lab.timesSeen("FW_UPDFLASH_PROGRAM") == 1);
}
