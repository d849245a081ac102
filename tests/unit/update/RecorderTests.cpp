// The recorder's handling of states and of an unusable history. The disk is real, the clock is simulated.
#include "support/SimulatedClock.h"
#include "support/TemporaryFolder.h"
#include "unit/update/HistoryLab.h"
#include "update/UpdateRecorder.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace zul::test;
using namespace std::chrono_literals;

namespace {

struct RecorderLab {
    explicit RecorderLab(bool isUsable = true) {
        if (!isUsable) std::filesystem::create_directory(folder / "history.sqlite");
    }
    UpdateState stateIn(UpdatePhase phase) {
        UpdateState state;
        state.key = "one";
        state.phase = phase;
        state.begun = state.phaseBegun = clock.now();
        return state;
    }
    UpdateRecord newest() {
        recorder.flush();
        const auto found = UpdateHistory({.folder = folder.path}).records({});
        REQUIRE(found.records.size() >= 1);
        return found.records.front();
    }

    TemporaryFolder folder;
    SimulatedClock clock;
    MainQueue mainQueue{clock};
    UpdateRecorder recorder{mainQueue, clock, {.folder = folder.path}, "unit_tests", "1.0"};
};

} // namespace

TEST_CASE("a problem of the history that occurs before a handler is set is reported later, and once") {
    RecorderLab lab(/*isUsable=*/false);
    lab.recorder.readUnfinished([](const auto&) {});
    lab.recorder.flush();
    lab.mainQueue.runPending();
    std::vector<std::string> shown;
    lab.recorder.setProblemHandler([&](const std::string& text) { shown.push_back(text); });
    REQUIRE(shown.size() == 1);
    CHECK(shown.front().find("history.sqlite cannot be read") != std::string::npos);
    lab.recorder.setProblemHandler([&](const std::string& text) { shown.push_back(text); });
    lab.recorder.readUnfinished([](const auto&) {});
    lab.recorder.flush();
    lab.mainQueue.runPending();
    CHECK(shown.size() == 1);
}

TEST_CASE("a completion runs after its record is on the disk, also if it cannot be written") {
    for (const bool isUsable : {true, false}) {
        RecorderLab lab(isUsable);
        bool isStored = false;
        lab.recorder.begin("one", {}, [&] { isStored = true; });
        CHECK_FALSE(isStored);
        lab.recorder.flush();
        lab.mainQueue.runPending();
        CHECK(isStored);
    }
}

TEST_CASE("a phase is stored when it begins, and gets its duration when it ends") {
    RecorderLab lab;
    lab.recorder.begin("one", {}, {});
    UpdateState state = lab.stateIn(UpdatePhase::writing);
    lab.recorder.noteState(state);
    REQUIRE(lab.newest().phases.size() == 1);
    CHECK(lab.newest().phases.front().name == "writing");
    CHECK_FALSE(lab.newest().phases.front().duration);
    state.pastPhases = {{UpdatePhase::writing, 1500ms}};
    state.phase = UpdatePhase::done;
    lab.recorder.noteState(state);
    lab.recorder.noteState(state);
    REQUIRE(lab.newest().phases.size() == 1);
    CHECK(lab.newest().phases.front().duration == 1500);
}

TEST_CASE("the last update of a printer is reported as failed until a later one succeeds") {
    RecorderLab lab;
    const auto readFailed = [&lab] {
        std::vector<UpdateRecord> failed;
        lab.recorder.readUnfinished([&](UpdateRecorder::Unfinished unfinished) { failed = unfinished.failed; });
        lab.recorder.flush();
        lab.mainQueue.runPending();
        return failed.size();
    };
    const auto record = [&lab](UpdatePhase phase, bool isSuccess) {
        lab.recorder.begin("one", {}, {});
        lab.recorder.complete(lab.stateIn(phase), {.verdict = "any", .isSuccess = isSuccess});
    };
    CHECK(readFailed() == 0);
    record(UpdatePhase::colorTables, false);
    CHECK(readFailed() == 1);
    record(UpdatePhase::checking, false); // declined: no command was sent
    CHECK(readFailed() == 1);
    record(UpdatePhase::colorTables, true);
    CHECK(readFailed() == 0);
}

TEST_CASE("an update does not wait for a history that takes too long, and its record is written later") {
    HistoryLab lab;
    lab.begin(printerAt(kKey));
    RealClock clock;
    MainQueue mainQueue{clock};
    UpdateHistoryOptions options = lab.options();
    options.longestWait = std::chrono::minutes(1); // longer than the test takes
    UpdateRecorder recorder(mainQueue, clock, options, "unit_tests", "1.0", 0ms);
    std::vector<std::string> shown;
    recorder.setProblemHandler([&](const std::string& text) { shown.push_back(text); });
    int begins = 0;
    {
        const WriteLock lock(lab.file());
        recorder.begin(kOtherKey, {}, [&] { ++begins; });
        mainQueue.waitForWork();
        mainQueue.runPending();
        CHECK(begins == 1);
    }
    recorder.flush();
    mainQueue.runPending();
    CHECK(begins == 1);
    REQUIRE(shown.size() == 1);
    CHECK(shown.front() == "The history of updates " + lab.file().string() +
                               " is not written in time. The update begins without its record. Check the disk of that "
                               "file.");
    CHECK(lab.count() == 2);
}
