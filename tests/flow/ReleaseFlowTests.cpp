// The interface is closed after interrupted queries and after an update that did not begin, so that other programs can
// open it.
#include "SupervisedLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;
using Equal = UpdateSupervisor::Equal;

namespace {

void decline(SupervisedLab& lab, UpdateResult result) {
    lab.beginUpToQuestion();
    REQUIRE(lab.operatorDesk.press("Cancel"));
    lab.rest();
    CHECK(lab.result() == result);
}

} // namespace

TEST_CASE("the interface is closed when an update is declined") {
    SupervisedLab lab;
    lab.startWithVK14();
    decline(lab, UpdateResult::declined);
    CHECK(lab.printer()->ownership() == Ownership::none);
}

TEST_CASE("a printer that was claimed before its update was declined remains claimed") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.printer()->setIsOwned(1);
    lab.rest();
    REQUIRE(lab.printer()->ownership() == Ownership::thisProgram);
    decline(lab, UpdateResult::declined);
    CHECK(lab.printer()->ownership() == Ownership::thisProgram);
}

TEST_CASE("the interface is closed when the update of a printer that is not ready is declined") {
    SupervisedLab lab;
    lab.startWithVK14("status=00000:01000");
    decline(lab, UpdateResult::notReady);
    CHECK(lab.printer()->ownership() == Ownership::none);
}

TEST_CASE("the interface is closed when a printer does not reply to the check before its update") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@STATUS#2,fault=silence@STATUS#3");
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    lab.agree();
    lab.rest();
    CHECK(lab.result() == UpdateResult::unanswered);
    CHECK(lab.printer()->ownership() == Ownership::none);
}

TEST_CASE("the interface is closed after the queries of a loader, and of an unresponsive printer") {
    for (const char* settings : {"VK14,mode=loader", "VK14,fault=silence@STATUS#2,fault=silence@STATUS#3"}) {
        CAPTURE(settings);
        SupervisedLab lab;
        lab.attach(settings);
        lab.start();
        lab.printer()->updateInfo();
        lab.rest();
        CHECK(lab.printer()->ownership() == Ownership::none);
    }
}
