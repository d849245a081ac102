// Turns the states of updates into records of the history. The supervisor and the session call it on the main queue.
// All access to the disk is on the recorder's own queue; results are posted to the main queue.
#include "update/UpdateRecorder.h"

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/foundation/LocalizedFormat.h"
#include "update/LockSocket.h"
#include "update/UpdateHistory.h"
#include "update/UpdatePhase.h"
#include "update/UpdateRecord.h"
#include "update/UpdateState.h"
#include "update/UpdateTexts.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace zul {

namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

} // namespace

struct UpdateRecorder::Storage {
    explicit Storage(UpdateHistoryOptions options) : history(std::move(options)) {}
    UpdateHistory history;
    std::map<std::string, std::int64_t> ids; // of the newest record, by key; 0: it could not be stored
    std::set<std::string> reported;          // texts of problems
};

UpdateRecorder::UpdateRecorder(MainQueue& mainQueue, Clock& clock, UpdateHistoryOptions options, std::string program,
                               std::string version, Clock::Duration longestBegin)
    : _mainQueue(mainQueue), _clock(clock), _program(std::move(program)), _version(std::move(version)),
      _longestBegin(longestBegin), _file((options.folder / "history.sqlite").string()),
      _storage(std::make_shared<Storage>(std::move(options))),
      _queue(std::make_unique<SerialQueue>("update history", clock)), _self(std::make_shared<UpdateRecorder*>(this)) {}

UpdateRecorder::~UpdateRecorder() {
    flush();
}

void UpdateRecorder::flush() {
    _queue->waitUntilIdle();
}

void UpdateRecorder::perform(std::function<std::string(Storage&)> operation, Block done) {
    _queue->async([storage = _storage, operation = std::move(operation), done = std::move(done),
                   weak = std::weak_ptr(_self), &mainQueue = _mainQueue] {
        std::string problem = operation(*storage);
        // A history on a full disk fails at every phase; the operator reads it once.
        if (!problem.empty() && !storage->reported.insert(problem).second) problem.clear();
        if (problem.empty() && !done) return;
        mainQueue.async([weak, done, problem] {
            const auto self = weak.lock();
            if (!self) return;
            if (!problem.empty()) (*self)->report(problem);
            if (done) done();
        });
    });
}

void UpdateRecorder::setProblemHandler(std::function<void(const std::string& text)> handler) {
    _problem = std::move(handler);
    if (!_problem) return;
    for (const std::string& problem : std::exchange(_unreported, {})) _problem(problem);
}

void UpdateRecorder::report(const std::string& problem) {
    if (_problem) {
        _problem(problem);
    } else {
        _unreported.push_back(problem); // the history is read before the handler is set
    }
}

std::int64_t UpdateRecorder::wallTime(Clock::TimePoint time) const {
    // States have times of the monotonic clock, which does not jump; records need calendar time.
    const auto wall = duration_cast<milliseconds>(_clock.wallTime().time_since_epoch());
    return (wall - duration_cast<milliseconds>(_clock.now() - time)).count();
}

// ---- records --------------------------------------------------------------------------------------------------------

void UpdateRecorder::begin(const std::string& key, UpdateRecord record, Block stored) {
    _courses[key] = {};
    record.key = key;
    record.begun = wallTime(_clock.now());
    record.program = _program;
    record.programVersion = _version;
    record.user = nameOfUser(::geteuid());
    perform(
        [record = std::move(record)](Storage& storage) {
            const auto begun = storage.history.begin(record);
            storage.ids[record.key] = begun.id;
            return begun.problem;
        },
        stored ? afterLongestBegin(std::move(stored)) : stored);
}

// A history on a network drive may block for minutes when its server is gone. Its record is written when it is back.
Block UpdateRecorder::afterLongestBegin(Block stored) {
    struct Waiting {
        Block stored;
        Clock::TimerId timer = 0;
    };
    const auto waiting = std::make_shared<Waiting>(Waiting{std::move(stored)});
    const auto late = [weak = std::weak_ptr(_self), waiting] {
        const auto self = weak.lock();
        if (!self || !waiting->stored) return;
        (*self)->report(localizedFormat("The history of updates %s is not written in time. The update begins without "
                                        "its record. Check the disk of that file.",
                                        (*self)->_file));
        std::exchange(waiting->stored, {})();
    };
    waiting->timer =
        _clock.callAt(_clock.now() + _longestBegin, [&mainQueue = _mainQueue, late] { mainQueue.async(late); });
    return [waiting, &clock = _clock] {
        clock.cancel(waiting->timer);
        if (waiting->stored) std::exchange(waiting->stored, {})();
    };
}

void UpdateRecorder::noteState(const UpdateState& state) {
    const auto found = _courses.find(state.key);
    if (found == _courses.end()) return;
    std::vector<UpdatePhaseTime> news;
    Course& course = found->second;
    auto begun = state.begun;
    for (std::size_t index = 0; index < state.pastPhases.size(); ++index) {
        const PhaseTime& past = state.pastPhases[index];
        if (index >= course.phases) {
            const auto stored = std::exchange(course.phaseBegun, std::nullopt);
            news.push_back({.name = phaseRow(past.phase).name, .begun = stored.value_or(wallTime(begun))});
            news.back().duration = duration_cast<milliseconds>(past.duration).count();
        }
        begun += past.duration;
    }
    course.phases = state.pastPhases.size();
    // A phase is stored when it begins, too: that shows in which one an update was interrupted.
    if (!course.phaseBegun && state.phase != UpdatePhase::done) {
        course.phaseBegun = wallTime(state.phaseBegun);
        news.push_back({.name = phaseRow(state.phase).name, .begun = *course.phaseBegun});
    }
    if (news.empty()) return;
    perform([key = state.key, news = std::move(news)](Storage& storage) {
        std::string problem;
        for (const UpdatePhaseTime& phase : news) {
            if (const auto one = storage.history.addPhase(storage.ids[key], phase); !one.empty()) problem = one;
        }
        return problem;
    });
}

void UpdateRecorder::complete(const UpdateState& state, RecordedVerdict verdict, const std::string& serial) {
    if (!_courses.contains(state.key)) return;
    noteState(state);
    verdict.given = wallTime(_clock.now());
    verdict.versionAfter = state.currentVersion;
    verdict.tablesWritten = state.tablesWritten;
    verdict.tables = state.tables;
    verdict.retries = std::max(state.imagesSent - 1, 0);
    UpdateChanges changes;
    changes.versionBefore = state.previousVersion;
    if (!serial.empty()) changes.serial = serial;
    perform([key = state.key, verdict = std::move(verdict), changes = std::move(changes)](Storage& storage) {
        const std::int64_t id = storage.ids[key];
        // Before the verdict: a success closes the earlier records of the printer that has this serial number.
        const std::string problem = storage.history.update(id, changes);
        const std::string other = storage.history.complete(id, verdict);
        return other.empty() ? problem : other;
    });
}

// ---- what the records show ------------------------------------------------------------------------------------------

void UpdateRecorder::readUnfinished(std::function<void(Unfinished unfinished)> read) {
    auto found = std::make_shared<Unfinished>();
    perform(
        [found](Storage& storage) {
            auto interrupted = storage.history.interrupted();
            if (!interrupted.problem.empty()) return interrupted.problem;
            found->interrupted = std::move(interrupted.records);
            auto failed = storage.history.lastFailures();
            found->failed = std::move(failed.records);
            return failed.problem;
        },
        [found, read = std::move(read)] { read(std::move(*found)); });
}

void UpdateRecorder::readUsual(const std::string& model, std::function<void(UsualDurations durations)> read) {
    auto found = std::make_shared<UsualDurations>();
    perform(
        [found, model](Storage& storage) {
            const auto durations = storage.history.usualDurations(model);
            for (const auto& [name, span] : durations.milliseconds) {
                if (const PhaseRow* const row = phaseRowNamed(name)) (*found)[row->phase] = milliseconds(span);
            }
            return durations.problem;
        },
        [found, read = std::move(read)] { read(std::move(*found)); });
}

} // namespace zul
