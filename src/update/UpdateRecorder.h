// Writes the history of the updates that the supervisor follows, on a queue of its own: the disk may be slow. A history
// that cannot be written never stops an update, and is reported once. Main queue.
#pragma once

#include "platform/dispatch/Queue.h"
#include "update/UpdateHistory.h"
#include "update/UpdateTexts.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace zul {

class UpdateRecorder {
  public:
    /// program and version are those of the records.
    UpdateRecorder(MainQueue& mainQueue, Clock& clock, UpdateHistoryOptions options, std::string program,
                   std::string version);
    /// Waits until everything is stored.
    ~UpdateRecorder();
    UpdateRecorder(const UpdateRecorder&) = delete;
    UpdateRecorder& operator=(const UpdateRecorder&) = delete;

    /// What happened to the history's file and what to do; each text comes once. Those that came before the handler are
    /// given to it at once.
    void setProblemHandler(std::function<void(const std::string& text)> handler);

    /// Begins a record for the printer with this key, in place of an earlier one. stored runs on the main queue when it
    /// is on the disk, or when it is clear that it will not be. Program, version, user and time are filled in.
    void begin(const std::string& key, UpdateRecord record, Block stored);
    /// Stores the phases that are new since the last call.
    void noteState(const UpdateState& state);
    /// Stores the verdict, or a correction of it. serial: the printer's, if it is known now; empty keeps the record's.
    void complete(const UpdateState& state, RecordedVerdict verdict, const std::string& serial = {});

    /// What earlier runs have left, of each kind the newest first.
    struct Unfinished {
        std::vector<UpdateRecord> interrupted{}; // begun and not ended
        std::vector<UpdateRecord> failed{}; // each printer's last update that changed something in it, if it failed
    };
    /// read runs on the main queue.
    void readUnfinished(std::function<void(Unfinished unfinished)> read);
    /// How long the phases usually take on a model. read runs on the main queue.
    void readUsual(const std::string& model, std::function<void(UsualDurations durations)> read);

    /// Waits until everything is stored.
    void flush();

  private:
    struct Storage;
    struct Course {
        std::size_t phases = 0;                   // of the past ones that are stored
        std::optional<std::int64_t> phaseBegun{}; // of the phase that was stored last without its duration, wall time
    };

    void perform(std::function<std::string(Storage&)> operation, Block done = {});
    std::int64_t wallTime(Clock::TimePoint time) const;
    void report(const std::string& problem);

    MainQueue& _mainQueue;
    Clock& _clock;
    const std::string _program;
    const std::string _version;
    std::function<void(const std::string&)> _problem;
    std::vector<std::string> _unreported;   // problems that came before the handler
    std::map<std::string, Course> _courses; // by key
    std::shared_ptr<Storage> _storage;      // used on _queue
    std::unique_ptr<SerialQueue> _queue;
    /// Blocks that are still queued when this is destroyed find it expired.
    std::shared_ptr<UpdateRecorder*> _self;
};

} // namespace zul
