// Writes the history of the updates that the supervisor follows, on a queue of its own, because the disk may be slow. A
// history that cannot be written never stops an update; the problem is reported once. Main queue.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "update/UpdateHistory.h"
#include "update/UpdateRecord.h"
#include "update/UpdateState.h"
#include "update/UpdateTexts.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zul {

class UpdateRecorder {
  public:
    /// program and version: name and version of this program, for the records. longestBegin: how long an update waits
    /// for its record.
    UpdateRecorder(MainQueue& mainQueue, Clock& clock, UpdateHistoryOptions options, std::string program,
                   std::string version, Clock::Duration longestBegin = std::chrono::seconds(5));
    /// Waits until everything is stored.
    ~UpdateRecorder();
    UpdateRecorder(const UpdateRecorder&) = delete;
    UpdateRecorder& operator=(const UpdateRecorder&) = delete;

    /// Sets the handler of problems. It is called with what happened to the history's file and what to do, once with
    /// each text, on the main queue. Problems from before this call are passed to it at once.
    void setProblemHandler(std::function<void(const std::string& text)> handler);

    /// Begins a new record for the printer with this key; later calls for the key are about it. Fills in program,
    /// version, user and time. stored runs on the main queue when the record is on the disk, or could not be stored. A
    /// disk that does not answer is reported as a problem after longestBegin, and stored runs then.
    void begin(const std::string& key, UpdateRecord record, Block stored);
    /// Stores the phases that are new since the last call. Ignored for a key without a record.
    void noteState(const UpdateState& state);
    /// Stores the verdict, or a correction of it. serial: the printer's serial number; empty leaves the record's as it
    /// is. Ignored for a key without a record.
    void complete(const UpdateState& state, RecordedVerdict verdict, const std::string& serial = {});

    /// The updates of earlier runs that are not complete, each list with the newest first.
    struct Unfinished {
        std::vector<UpdateRecord> interrupted{}; // begun and not ended
        std::vector<UpdateRecord> failed{}; // each printer's last update that changed something in it, if it failed
    };
    /// Reads these updates. read runs on the main queue.
    void readUnfinished(std::function<void(Unfinished unfinished)> read);
    /// How long the phases usually take on a model. read runs on the main queue.
    void readUsual(const std::string& model, std::function<void(UsualDurations durations)> read);

    /// Waits until everything is stored.
    void flush();

  private:
    struct Storage;
    struct Course {
        std::size_t phases = 0;                   // number of past phases that are stored
        std::optional<std::int64_t> phaseBegun{}; // wall time of the phase that is stored without its duration
    };

    /// Runs operation on the recorder's queue, then reports its problem and runs done on the main queue.
    void perform(std::function<std::string(Storage&)> operation, Block done = {});
    /// In milliseconds since 1970.
    std::int64_t wallTime(Clock::TimePoint time) const;
    void report(const std::string& problem);
    /// Returns a block that runs stored, once. It also runs after longestBegin, with a report of the problem.
    Block afterLongestBegin(Block stored);

    MainQueue& _mainQueue;
    Clock& _clock;
    const std::string _program;
    const std::string _version;
    const Clock::Duration _longestBegin;
    const std::string _file; // of the history
    std::function<void(const std::string&)> _problem;
    std::vector<std::string> _unreported;   // problems that came before the handler
    std::map<std::string, Course> _courses; // by key
    std::shared_ptr<Storage> _storage;      // used on _queue
    std::unique_ptr<SerialQueue> _queue;
    /// Blocks that are still queued when this is destroyed find it expired.
    std::shared_ptr<UpdateRecorder*> _self;
};

} // namespace zul
