// The operator's answers during an update: which time limit a question belongs to, what a refusal ends and what it does
// not, and when the engine's own reports are shown.
#include "SupervisedLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Equal = UpdateSupervisor::Equal;
using Results = std::vector<UpdateResult>;

// It has taken its image, is still attached, and takes longer than programming usually takes.
void stallWhileProgramming(SupervisedLab& lab) {
    lab.startWithVK14("program=900000");
    lab.beginUpdate();
    lab.rest(5min);
    REQUIRE(lab.update().state.phase == UpdatePhase::programming);
    REQUIRE(lab.update().isStalled);
    REQUIRE(lab.supervisor.mayGetSecondImage(lab.update().state.key));
}

} // namespace

TEST_CASE("an update is shown as asking from its question to the answer") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(100ms);
    REQUIRE(lab.operatorDesk.title() == "Attention:");
    CHECK(lab.update().isAsking);
    lab.operatorDesk.setAgreed(true);
    REQUIRE(lab.operatorDesk.press("Continue"));
    CHECK_FALSE(lab.update().isAsking);
}

TEST_CASE("the operator's time for an answer does not make an update be given up") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 1min});
    lab.startWithVK14();
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(10min);
    lab.agree();
    CHECK(lab.update().isOpen());
    lab.rest(10min);
    REQUIRE(lab.operatorDesk.press(lab.operatorDesk.buttons().at(1)));
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::succeeded});
}

TEST_CASE("an operator who does not wait for a busy printer is shown which program uses it") {
    SupervisedLab lab;
    lab.startWithVK14("fault=holder#2:600000");
    lab.beginUpToQuestion();
    REQUIRE(lab.operatorDesk.title() == "Printer Busy");
    REQUIRE(lab.operatorDesk.press("Cancel"));
    lab.rest(1s);
    CHECK(lab.result() == UpdateResult::busy);
    REQUIRE(lab.update().verdict.holder);
    CHECK(lab.update().verdict.isUntouched());
}

TEST_CASE("an update stopped at its last question remains stopped when the question is answered") {
    SupervisedLab lab;
    lab.startWithVK14("firmware=VK14 09.00");
    lab.beginUpToQuestion();
    REQUIRE(lab.operatorDesk.title() == "Firmware update not needed");
    lab.supervisor.requestStop();
    REQUIRE(lab.operatorDesk.press("OK"));
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::stopped});
}

// ---- a second start of a stalled update -----------------------------------------------------------------------------

TEST_CASE("declining a second start does not change the first one") {
    SupervisedLab lab;
    stallWhileProgramming(lab);
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    REQUIRE(lab.operatorDesk.title() == "Attention:");
    REQUIRE(lab.operatorDesk.press("Quit"));
    lab.rest(1s);
    CHECK(lab.update().isOpen());
    CHECK(lab.ends.empty());
    CHECK(lab.update().state.phase == UpdatePhase::programming);
    CHECK(lab.records().size() == 1);
}

TEST_CASE("a second start shows a dismissed update again, reserves its printer and restarts its time") {
    SupervisedLab lab;
    stallWhileProgramming(lab);
    const std::string key = lab.update().state.key;
    lab.supervisor.dismiss(key);
    REQUIRE(lab.update().isDismissed);
    REQUIRE_FALSE(lab.locks.ask(key));
    lab.supervisor.begin(lab.printer(), Equal::install);
    CHECK_FALSE(lab.update().isDismissed);
    CHECK_FALSE(lab.update().isStalled);
    const auto answer = lab.locks.ask(key);
    REQUIRE(answer);
    CHECK(answer->phase == "programming");
    CHECK_FALSE(lab.supervisor.reasonAgainst(key).empty());
    CHECK_FALSE(lab.supervisor.mayGetSecondImage(key));
}

TEST_CASE("a second start of a visible update keeps its printer reserved") {
    SupervisedLab lab;
    stallWhileProgramming(lab);
    const std::string key = lab.update().state.key;
    REQUIRE(lab.locks.ask(key));
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    CHECK(lab.locks.ask(key));
    CHECK(lab.notes.empty());
}

TEST_CASE("a printer that cannot be reserved is updated nevertheless, and its operator is shown the reason once") {
    SupervisedLab lab(Lab::sampleArchive(), /*hasHistory=*/true, std::string(200, 'n')); // too long for a lock's name
    lab.startWithVK14();
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    REQUIRE(lab.notes.size() == 1);
    CHECK(lab.notes.front().starts_with("The printer cannot be reserved for this program"));
}

// ---- reports --------------------------------------------------------------------------------------------------------

TEST_CASE("a report of a problem is shown after the verdict, a success before it") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.beginUpdate();
    for (int step = 0; step < 1000 && lab.update().state.phase != UpdatePhase::programming; ++step) lab.advance(50ms);
    AlertDescription problem;
    problem.kind = AlertKind::problem;
    problem.messageText = "There was a problem with the firmware update!";
    problem.buttons = {"OK"};
    problem.printerKey = lab.update().state.key;
    lab.supervisor.beginAlert(problem);
    CHECK(lab.operatorDesk.waiting() == 0);
    lab.rest();
    REQUIRE(lab.result() == UpdateResult::succeeded);
    REQUIRE(lab.operatorDesk.title() == "The update is complete.");
    CHECK(lab.operatorDesk.message() == "The printer reports VK14 01.61.");
    CHECK(lab.operatorDesk.alert().style != AlertStyle::critical);
    REQUIRE(lab.operatorDesk.press("OK"));
    CHECK(lab.operatorDesk.title() == problem.messageText);
    CHECK(lab.operatorDesk.waiting() == 2); // and the engine's own
}

TEST_CASE("a verdict that is shown before the engine's report says what to do") {
    SupervisedLab lab;
    lab.startWithVK14("fault=stall@UPDATE_CW#2");
    lab.beginUpdate();
    lab.rest();
    REQUIRE(lab.operatorDesk.title() == "The update is not complete.");
    CHECK(lab.operatorDesk.message() == "Reason: only 1 of 2 color tables were sent (the printer refused the data).\n\n"
                                        "Leave the printer switched on and start the update again.");
    CHECK(lab.operatorDesk.alert().style == AlertStyle::critical);
}

TEST_CASE("advice that is the same for several damaged files is given once") {
    ChangedSamples archive;
    std::filesystem::remove(archive.folder() / "VK14_600_0161.cwd");
    std::filesystem::remove(archive.folder() / "VK14_300_0161.cwd");
    SupervisedLab lab(archive.folder());
    lab.startWithVK14();
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest();
    REQUIRE(lab.result() == UpdateResult::badFiles);
    const auto& verdict = lab.update().verdict;
    CHECK(verdict.reason.find("VK14_300_0161.cwd is missing in") != std::string::npos);
    CHECK(verdict.reason.find("; VK14_600_0161.cwd is missing in") != std::string::npos);
    const std::string& advice = lab.update().advice;
    const std::string remedy = "Copy it from the vendor's download into ";
    REQUIRE(advice.starts_with(remedy));
    CHECK(advice.find(remedy, remedy.size()) == std::string::npos);
}
