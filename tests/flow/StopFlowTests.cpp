// Requests to stop updates: at which points updates end, and which state the printer is left in.
#include "SupervisedLab.h"

#include "protocol/CommandFrame.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Equal = UpdateSupervisor::Equal;

} // namespace

TEST_CASE("an update that is asked to stop before its first command stops at once") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    lab.supervisor.requestStop();
    CHECK(lab.result() == UpdateResult::stopped);
}

TEST_CASE("an update that is asked to stop in the loader continues until the whole image is sent") {
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

TEST_CASE("an update that is asked to stop while its tables are written continues until they are written") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@TBL_RDVersion#3");
    lab.beginUpdate();
    while (lab.update().state.phase != UpdatePhase::colorTables) lab.advance(50ms);
    lab.supervisor.requestStop();
    CHECK(lab.update().isOpen());
    lab.rest();
    CHECK(lab.ends == std::vector<UpdateResult>{UpdateResult::succeeded});
}

TEST_CASE("a printer that must not be interrupted is released after at most a minute") {
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

TEST_CASE("an update stopped before its order is not updated, and its printer is untouched") {
    SupervisedLab lab;
    lab.startWithVK14();
    SUBCASE("before its first question") {
        lab.supervisor.begin(lab.printer(), Equal::install);
        lab.supervisor.requestStop();
    }
    SUBCASE("at its confirmation") {
        lab.beginUpToQuestion();
        lab.supervisor.requestStop();
    }
    CHECK(lab.result() == UpdateResult::stopped);
    CHECK(lab.update().verdict.isUntouched());
    CHECK(lab.update().verdict.reason == "the program was asked to end");
    CHECK(lab.update().advice == "Nothing has been changed in the printer.");
    lab.rest();
    CHECK(lab.timesSeen("FW_UPDFLASH_REWRITE") == 0);
}

TEST_CASE("an update that is asked to stop while the order is being sent waits for its effect") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.beginUpToQuestion();
    CHECK_FALSE(lab.supervisor.isAnyBetweenCommands());
    lab.happens(events::ProgressStored{.value = 1});
    CHECK(lab.supervisor.isAnyBetweenCommands()); // the order is being sent
    lab.supervisor.requestStop();
    REQUIRE(lab.update().isOpen());
    SUBCASE("it is refused") {
        lab.happens(events::CommandSent{.command = kCommandEnterLoader, .code = kIOUSBPipeStalled});
        CHECK(lab.result() == UpdateResult::commandRefused);
        CHECK(lab.update().verdict.isUntouched());
    }
    SUBCASE("it is accepted") {
        lab.happens(events::CommandSent{.command = kCommandEnterLoader});
        CHECK(lab.update().isOpen());
        lab.advance(61s);
        CHECK(lab.result() == UpdateResult::stopped);
        CHECK_FALSE(lab.update().verdict.isUntouched());
    }
    SUBCASE("its effect is unknown after a minute") {
        lab.advance(61s);
        CHECK(lab.result() == UpdateResult::stopped);
        CHECK_FALSE(lab.update().verdict.isUntouched());
        CHECK(lab.update().advice.starts_with("The printer restarts into its loader or waits in it."));
    }
}
