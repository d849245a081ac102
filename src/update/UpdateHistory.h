// The history of updates: one record per update of either program, begun before the first command is sent and completed
// after the last one, so that an update that was cut off is found by the next start.
//
// The records are in one SQLite file that several processes use at once. What a call has stored survives the end of the
// process and of the power. Calls wait for the disk, and up to some seconds for other processes: they belong on a queue
// that may wait, never on the main queue. Nothing throws. A history that cannot be used is reported by each call, and
// must not keep an update from running.
#pragma once

#include "platform/files/Folders.h"
#include "update/UpdateRecord.h"

#include <chrono>
#include <cstddef>
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
    /// Where history.sqlite is; made by the first begin(). Empty: each call reports that there is no folder.
    std::filesystem::path folder = stateFolder();
    /// Milliseconds since 1970, for the name of a damaged file; null: the name has no time.
    std::function<std::int64_t()> wallTime{};
    /// begin() removes older records than the newest so many.
    std::size_t mostRecords = 10'000;
    /// How long a call waits for other processes.
    std::chrono::milliseconds longestWait{2000};
};

/// What has become known since the record was begun; nullopt leaves a value as it is.
struct UpdateChanges {
    std::optional<std::string> key{}, place{}, model{}, serial{}, archiveFolder{}, versionBefore{}, versionOffered{};
    std::optional<std::map<std::string, std::string>> digests{};
};

struct UpdateFilter {
    std::string printer{};               // key, serial number or place, in any case; empty: every printer
    std::optional<std::int64_t> since{}; // begun at this time or later
    std::size_t limit = 10'000;
};

/// Any thread; calls wait for each other. A problem, or the text that a call returns, is for people: what happened to
/// which file and what to do, empty when there is nothing to report. It may be there although the call was done: when a
/// damaged file was put aside and a new one begun.
class UpdateHistory {
  public:
    explicit UpdateHistory(UpdateHistoryOptions options);

    struct Begun {
        std::int64_t id = 0; // 0: not recorded, the calls for this update do nothing
        std::string problem{};
    };
    struct Records {
        std::vector<UpdateRecord> records{}; // the newest first
        std::string problem{};
    };
    struct Durations {
        std::map<std::string, std::int64_t> milliseconds{}; // by the phase's name
        std::string problem{};
    };

    /// Stores the record, with this process as the one that updates; what the history fills in is ignored.
    [[nodiscard]] Begun begin(const UpdateRecord& record);
    std::string update(std::int64_t id, const UpdateChanges& changes);
    /// Stores a phase; one of the same name and beginning gets the new duration. Storing it when it begins, too, shows
    /// where an update was cut off.
    std::string addPhase(std::int64_t id, const UpdatePhaseTime& phase);
    /// Stores the verdict; a further one is a correction, and the earlier ones are kept. One that says the same as the
    /// last one is not stored again. A success closes the interrupted records of the same printer: of the same serial
    /// number, or, where one of the two is not known, of the same key.
    std::string complete(std::int64_t id, const RecordedVerdict& verdict);
    /// Closes a record for good that is interrupted or ended without success: no program offers to complete it.
    std::string dismiss(std::int64_t id);

    /// Without a file there are no records, and none is made.
    Records records(const UpdateFilter& filter);
    /// Records that are neither completed nor closed, and whose process has ended.
    Records interrupted();
    /// Each printer's last update that changed something in it, if that ended without success and is not dismissed. Of
    /// the newest 1,000 records.
    Records lastFailures();
    /// How long each phase usually takes on this model: the median over the last 20 successful updates that had the
    /// phase, for phases of at least three such updates.
    Durations usualDurations(const std::string& model);

    /// history.sqlite in the folder; empty without a folder.
    std::filesystem::path file() const;

  private:
    enum class Access { read, change, create };
    using Operation = std::function<void(HistoryDatabase&)>;
    std::string perform(Access access, const Operation& operation);
    void attempt(Access access, const Operation& operation) const;
    std::string beginAfresh(Access access, const Operation& operation, std::uint64_t damagedFile) const;
    std::string problemOf(Access access, const HistoryFailure& failure) const;

    const UpdateHistoryOptions _options;
    std::mutex _mutex;
};

} // namespace zul
