// The history of updates: one record per update of either program. A record is begun before the first command is sent
// and completed after the last one, so that the next start of a program finds an update that was interrupted.
//
// The records are in one SQLite file that several processes use at once. What a call has stored survives a crash of the
// process and a power cut. Calls wait for the disk, and up to some seconds for other processes: call them on a queue
// that may wait, never on the main queue. No call throws. Each call reports a history that cannot be used; callers must
// update printers nevertheless.
#pragma once

#include "platform/files/Folders.h"
#include "update/UpdateRecord.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace zul {

class HistoryDatabase;
struct HistoryFailure;

struct UpdateHistoryOptions {
    /// The folder of history.sqlite; the first begin() creates it. Empty: each call reports that there is no folder.
    std::filesystem::path folder = stateFolder();
    /// Milliseconds since 1970, for the name of a damaged file; null: the name has no time.
    std::function<std::int64_t()> wallTime{};
    /// begin() keeps this many of the newest records and removes older ones.
    std::size_t mostRecords = 10'000;
    /// How long a call waits for each lock of another process.
    std::chrono::milliseconds longestWait{2000};
};

/// Values that became known after the record was begun; nullopt leaves a value as it is.
struct UpdateChanges {
    std::optional<std::string> key{}, place{}, model{}, serial{}, archiveFolder{}, versionBefore{}, versionAvailable{};
    std::optional<std::map<std::string, std::string>> digests{};
};

/// Which records to read.
struct UpdateFilter {
    std::string printer{};               // key, serial number or place, upper or lower case; empty: every printer
    std::optional<std::int64_t> since{}; // begun at this time or later, in milliseconds since 1970
    std::size_t limit = 10'000;          // at most so many, the newest
};

/// Any thread; calls wait for each other. The problem, or the text that a call returns, is for the operator: what
/// happened to which file, and what to do. It is empty if there was no problem. A call may succeed and report a
/// problem, too: when a damaged file was renamed and a new one begun.
class UpdateHistory {
  public:
    /// Opens no file; each call opens it and closes it again.
    explicit UpdateHistory(UpdateHistoryOptions options);

    struct Begun {
        std::int64_t id = 0; // 0: not recorded; update(), addPhase() and complete() ignore this id
        std::string problem{};
    };
    struct Records {
        std::vector<UpdateRecord> records{}; // the newest first
        std::string problem{};
    };
    struct Durations {
        std::map<std::string, std::int64_t> milliseconds{}; // by the name of the phase
        std::string problem{};
    };

    /// Stores a new record, with this process as the one that updates. The members that the history fills in are
    /// ignored.
    [[nodiscard]] Begun begin(const UpdateRecord& record);
    /// Changes values of a record. Reports a problem if there is no such record any more.
    std::string update(std::int64_t id, const UpdateChanges& changes);
    /// Stores a phase. A stored one with the same name and begin gets the new duration. Also store a phase when it
    /// begins, without its duration: that shows in which phase an update was interrupted.
    std::string addPhase(std::int64_t id, const UpdatePhaseTime& phase);
    /// Stores the verdict. A further one is a correction, and the earlier ones are kept. A verdict that differs from
    /// the last one in its time only is not stored again. A success closes the earlier records of the same printer (see
    /// isSamePrinter()) that have no verdict, unless another process still works on them.
    std::string complete(std::int64_t id, const RecordedVerdict& verdict);
    /// Closes a record that was interrupted or ended without success: no program asks to complete it any more.
    std::string dismiss(std::int64_t id);

    /// The records that match the filter. Without a file there are none, and no file is created.
    Records records(const UpdateFilter& filter);
    /// Records that are neither completed nor closed, and whose process has ended.
    Records interrupted();
    /// For each printer the last update that may have changed something in it, if that ended without success and is
    /// not closed. Looks at the newest 1,000 records.
    Records lastFailures();
    /// How long each phase usually takes on this model: the median over the last 20 successful updates that had the
    /// phase. Leaves out phases of fewer than three such updates.
    Durations usualDurations(const std::string& model);

    /// The path of history.sqlite; empty without a folder.
    std::filesystem::path file() const;

  private:
    enum class Access { read, change, create }; // create: the file, if it is missing; change needs its record
    using Operation = std::function<void(HistoryDatabase&)>;
    /// Runs the operation on the file and returns the problem. Replaces a damaged file and runs it once more.
    std::string perform(Access access, const Operation& operation);
    /// Opens the file and runs the operation. Throws HistoryFailure.
    void attempt(Access access, const Operation& operation) const;
    /// Renames a damaged file and runs the operation on a new one.
    std::string beginAfresh(Access access, const Operation& operation, std::uint64_t damagedFile) const;
    std::string problemOf(Access access, const HistoryFailure& failure) const;

    const UpdateHistoryOptions _options;
    std::mutex _mutex;
};

} // namespace zul
