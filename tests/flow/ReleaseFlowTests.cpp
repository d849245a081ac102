// An interface that nobody needs any more is free for other programs, however the questions or the update ended.
#include "SupervisedLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;
using Equal = UpdateSupervisor::Equal;

TEST_CASE("an update that is declined leaves the interface free") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    lab.agree();
    lab.rest(1s);
    REQUIRE(lab.operatorDesk.press("Cancel"));
    lab.rest();
    CHECK(lab.result() == UpdateResult::declined);
    CHECK(lab.printer()->ownership() == Ownership::nobody);
}

TEST_CASE("a printer that was claimed before its update was declined stays claimed") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.printer()->setIsOwned(1);
    lab.rest();
    REQUIRE(lab.printer()->ownership() == Ownership::thisProgram);
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    lab.agree();
    lab.rest(1s);
    REQUIRE(lab.operatorDesk.press("Cancel"));
    lab.rest();
    CHECK(lab.result() == UpdateResult::declined);
    CHECK(lab.printer()->ownership() == Ownership::thisProgram);
}

TEST_CASE("a printer that is not ready is free when its update has been declined") {
    SupervisedLab lab;
    lab.startWithVK14("status=00000:01000");
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    lab.agree();
    lab.rest(1s);
    REQUIRE(lab.operatorDesk.press("Cancel"));
    lab.rest();
    CHECK(lab.result() == UpdateResult::notReady);
    CHECK(lab.printer()->ownership() == Ownership::nobody);
}

TEST_CASE("a printer that does not answer the check is free") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@STATUS#2,fault=silence@STATUS#3");
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    lab.agree();
    lab.rest();
    CHECK(lab.result() == UpdateResult::unanswered);
    CHECK(lab.printer()->ownership() == Ownership::nobody);
}

TEST_CASE("a printer in its loader and one that is mute are free after their questions") {
    for (const char* settings : {"VK14,mode=loader", "VK14,fault=silence@STATUS#2,fault=silence@STATUS#3"}) {
        CAPTURE(settings);
        SupervisedLab lab;
        lab.attach(settings);
        lab.start();
        lab.printer()->updateInfo();
        lab.rest();
        CHECK(lab.printer()->ownership() == Ownership::nobody);
    }
}
