// The stored data of successive updates: each phase at its time, each verdict with its values, and each problem of the
// disk once.
#include "support/SimulatedClock.h"
#include "support/TemporaryFolder.h"
#include "update/UpdateRecorder.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

struct Recording {
    UpdateState state;
    TemporaryFolder folder;
    SimulatedClock clock;
    MainQueue mainQueue{clock};
    UpdateRecorder recorder{mainQueue, clock, {.folder = folder.path}, "unit_tests", "1.0"};
    std::vector<std::string> problems;

    Recording() {
        state.key = "one";
        state.begun = state.phaseBegun = clock.now();
        recorder.setProblemHandler([this](const std::string& text) { problems.push_back(text); });
    }
    void spend(Clock::Duration span, UpdatePhase next) {
        clock.sleepFor(span);
        state.pastPhases.push_back({state.phase, span});
        state.phase = next;
        state.phaseBegun = clock.now();
    }
    std::vector<UpdateRecord> records() {
        settle();
        return UpdateHistory({.folder = folder.path}).records({}).records;
    }
    UpdateRecord newest() {
        const auto found = records();
        REQUIRE_FALSE(found.empty());
        return found.front();
    }
    void settle() {
        recorder.flush();
        mainQueue.runPending();
    }
    UpdateRecorder::Unfinished unfinished() {
        UpdateRecorder::Unfinished found;
        recorder.readUnfinished([&](UpdateRecorder::Unfinished read) { found = std::move(read); });
        settle();
        return found;
    }
};

} // namespace

TEST_CASE("phases that were not reported individually are stored with their times, one after another") {
    Recording update;
    update.recorder.begin("one", {}, {});
    update.spend(3s, UpdatePhase::enteringLoader);
    update.spend(2s, UpdatePhase::loaderAway);
    update.spend(4s, UpdatePhase::loaderBack);
    update.recorder.noteState(update.state); // the first call since the start
    const auto phases = update.newest().phases;
    REQUIRE(phases.size() == 4);
    CHECK(phases.at(1).begun - phases.at(0).begun == 3000);
    CHECK(phases.at(2).begun - phases.at(1).begun == 2000);
    CHECK(phases.at(3).begun - phases.at(2).begun == 4000);
    CHECK(phases.at(2).duration == 4000);
    CHECK_FALSE(phases.at(3).duration);
}

TEST_CASE("a phase keeps the time at which it was stored first, and is stored once") {
    Recording update;
    update.recorder.begin("one", {}, {});
    update.recorder.noteState(update.state);
    const std::int64_t begun = update.newest().phases.at(0).begun;
    update.clock.sleepFor(1s);
    update.recorder.noteState(update.state);
    update.state.begun += 500ms; // as if the clock had been read a moment later
    update.spend(1s, UpdatePhase::writing);
    update.recorder.noteState(update.state);
    update.recorder.noteState(update.state);
    const auto phases = update.newest().phases;
    REQUIRE(phases.size() == 2);
    CHECK(phases.at(0).begun == begun);
    CHECK(phases.at(0).duration == 1000);
}

TEST_CASE("a verdict is stored with further images as retries, and with a version that was read late") {
    Recording update;
    update.recorder.begin("one", {}, {}); // found in its loader: its version was unknown
    update.state.previousVersion = "VK14 01.60";
    update.state.currentVersion = "VK14 01.61";
    update.state.imagesSent = 3;
    update.recorder.complete(update.state, {.verdict = "succeeded", .isSuccess = true});
    const UpdateRecord record = update.newest();
    CHECK(record.versionBefore == "VK14 01.60");
    REQUIRE(record.verdicts.size() == 1);
    CHECK(record.verdicts.at(0).retries == 2);
    CHECK(record.verdicts.at(0).versionAfter == "VK14 01.61");
}

TEST_CASE("a printer that was never recorded gets no verdict and no phases") {
    Recording update;
    update.recorder.noteState(update.state);
    update.recorder.complete(update.state, {.verdict = "declined"});
    CHECK(update.records().empty());
    CHECK(update.problems.empty());
}

TEST_CASE("an update without an end has not failed, and neither has one that sent no command") {
    Recording update;
    update.recorder.begin("one", {}, {});
    update.state.phase = UpdatePhase::checking;
    update.recorder.complete(update.state, {.verdict = "declined"});
    CHECK(update.unfinished().failed.empty());
    update.recorder.begin("one", {}, {});
    update.state.phase = UpdatePhase::writing;
    update.recorder.noteState(update.state);
    CHECK(update.unfinished().failed.empty());
}

TEST_CASE("a history that cannot be written at the end of an update is reported once, whatever follows") {
    Recording update;
    update.recorder.begin("one", {}, {});
    update.recorder.noteState(update.state);
    update.settle();
    REQUIRE(update.problems.empty());
    std::filesystem::remove_all(update.folder / "history.sqlite");
    std::filesystem::create_directory(update.folder / "history.sqlite");
    for (int count = 0; count < 3; ++count) {
        update.recorder.complete(update.state, {.verdict = "attempt " + std::to_string(count)});
    }
    update.settle();
    REQUIRE(update.problems.size() == 1);
    CHECK(update.problems.at(0).find("history.sqlite cannot be written") != std::string::npos);
    bool isStored = false;
    update.recorder.begin("two", {}, [&] { isStored = true; }); // the next update is not prevented by it
    update.settle();
    CHECK(isStored);
    CHECK(update.problems.size() == 1);
}
