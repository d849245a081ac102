// The SQL of the history of updates. Each operation opens the file, makes its changes in one transaction and closes the
// file again, on its caller's thread: the recorder's queue, or the main queue of a command line that lists records.
#include "update/UpdateHistory.h"

#include "platform/files/Folders.h"
#include "platform/foundation/LocalizedFormat.h"
#include "update/HistoryDatabase.h"
#include "update/ProcessIdentity.h"
#include "update/UpdateRecord.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

namespace zul {

namespace fs = std::filesystem;
using Statement = HistoryDatabase::Statement;
using Transaction = HistoryDatabase::Transaction;

namespace {

constexpr const char* kFileName = "history.sqlite";

constexpr std::size_t kRecordsToLookAt = 1000; // by lastFailures(), the newest ones
constexpr std::int64_t kUsualUpdates = 20;     // a usual duration is the median of at most so many updates
constexpr std::size_t kFewestUpdates = 3;      // and of at least so many

constexpr const char* kUpdateColumns =
    "SELECT id, begun, device_key, place, model, serial, program, program_version, user_name, archive_folder, "
    "version_before, version_offered, process, boot, process_begun, closed_by FROM updates ";

UpdateRecord recordOf(const Statement& row) {
    UpdateRecord record;
    record.id = row.integer(0);
    record.begun = row.integer(1);
    record.key = row.text(2);
    record.place = row.text(3);
    record.model = row.text(4);
    record.serial = row.text(5);
    record.program = row.text(6);
    record.programVersion = row.text(7);
    record.user = row.text(8);
    record.archiveFolder = row.text(9);
    record.versionBefore = row.optionalText(10);
    record.versionAvailable = row.optionalText(11);
    record.process = {static_cast<int>(row.integer(12)), row.text(13), static_cast<std::uint64_t>(row.integer(14))};
    if (!row.isNull(15)) record.closedBy = row.integer(15);
    return record;
}

// Adds digests, phases and verdicts.
void readDetails(HistoryDatabase& database, std::vector<UpdateRecord>& records) {
    Statement digests(database, "SELECT file, digest FROM digests WHERE update_id = ?");
    Statement phases(database, "SELECT name, begun, duration FROM phases WHERE update_id = ? ORDER BY id");
    Statement verdicts(database, "SELECT given, verdict, is_success, reason, version_after, tables_written, tables, "
                                 "retries FROM verdicts WHERE update_id = ? ORDER BY id");
    for (UpdateRecord& record : records) {
        for (digests.bind(1, record.id); digests.step();) record.digests[digests.text(0)] = digests.text(1);
        for (phases.bind(1, record.id); phases.step();) {
            record.phases.push_back({phases.text(0), phases.integer(1), std::nullopt});
            if (!phases.isNull(2)) record.phases.back().duration = phases.integer(2);
        }
        for (verdicts.bind(1, record.id); verdicts.step();) {
            record.verdicts.push_back({verdicts.integer(0), verdicts.text(1), verdicts.integer(2) != 0,
                                       verdicts.text(3), verdicts.optionalText(4), verdicts.integer(5),
                                       verdicts.integer(6), verdicts.integer(7)});
        }
        // Kept prepared for the next record: preparing takes longer than reading one.
        for (Statement* statement : {&digests, &phases, &verdicts}) statement->reset();
    }
}

std::vector<UpdateRecord> recordsOf(HistoryDatabase& database, Statement& rows) {
    std::vector<UpdateRecord> records;
    while (rows.step()) records.push_back(recordOf(rows));
    readDetails(database, records);
    return records;
}

// The records that were begun and neither completed nor closed, the newest first.
std::vector<UpdateRecord> recordsWithoutEnd(HistoryDatabase& database) {
    Statement rows(
        database,
        (std::string(kUpdateColumns) + "WHERE is_success IS NULL AND closed_by IS NULL ORDER BY id DESC").c_str());
    return recordsOf(database, rows);
}

// Those of the records without end whose processes have ended.
std::vector<UpdateRecord> interruptedRecords(HistoryDatabase& database) {
    std::vector<UpdateRecord> records = recordsWithoutEnd(database);
    // Those of running processes are under way, also in another program.
    std::erase_if(records, [](const UpdateRecord& record) { return isRunning(record.process); });
    return records;
}

void storeDigests(HistoryDatabase& database, std::int64_t id, const std::map<std::string, std::string>& digests) {
    Statement(database, "DELETE FROM digests WHERE update_id = ?").bind(1, id).run();
    Statement insert(database, "INSERT OR REPLACE INTO digests (update_id, file, digest) VALUES (?, ?, ?)");
    for (const auto& [file, digest] : digests) insert.bind(1, id).bind(2, file).bind(3, digest).run();
}

std::int64_t storeBegin(HistoryDatabase& database, const UpdateRecord& record) {
    const ProcessIdentity process = identityOfThisProcess();
    Statement insert(database,
                     "INSERT INTO updates (begun, device_key, place, model, serial, program, program_version, "
                     "user_name, archive_folder, version_before, version_offered, process, boot, process_begun) "
                     "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.bind(1, record.begun).bind(2, record.key).bind(3, record.place).bind(4, record.model);
    insert.bind(5, record.serial).bind(6, record.program).bind(7, record.programVersion).bind(8, record.user);
    insert.bind(9, record.archiveFolder).bind(10, record.versionBefore).bind(11, record.versionAvailable);
    insert.bind(12, process.pid).bind(13, process.boot).bind(14, static_cast<std::int64_t>(process.begun));
    insert.run();
    const std::int64_t id = database.lastInsertedId();
    storeDigests(database, id, record.digests);
    return id;
}

UpdateRecord requiredRecord(HistoryDatabase& database, std::int64_t id) {
    Statement row(database, (std::string(kUpdateColumns) + "WHERE id = ?").c_str());
    std::vector<UpdateRecord> records = recordsOf(database, row.bind(1, id));
    if (records.empty()) throw HistoryFailure{.kind = HistoryFailure::Kind::noRecord};
    return std::move(records.front());
}

void insertVerdict(HistoryDatabase& database, std::int64_t id, const RecordedVerdict& verdict) {
    Statement insert(database, "INSERT INTO verdicts (update_id, given, verdict, is_success, reason, version_after, "
                               "tables_written, tables, retries) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.bind(1, id).bind(2, verdict.given).bind(3, verdict.verdict).bind(4, verdict.isSuccess ? 1 : 0);
    insert.bind(5, verdict.reason).bind(6, verdict.versionAfter).bind(7, verdict.tablesWritten);
    insert.bind(8, verdict.tables).bind(9, verdict.retries).run();
    Statement(database, "UPDATE updates SET is_success = ? WHERE id = ?")
        .bind(1, verdict.isSuccess ? 1 : 0)
        .bind(2, id)
        .run();
}

// Closes the earlier records without end of the same printer.
void closeInterrupted(HistoryDatabase& database, const UpdateRecord& success) {
    Statement close(database, "UPDATE updates SET closed_by = ? WHERE id = ?");
    for (const UpdateRecord& earlier : recordsWithoutEnd(database)) {
        if (earlier.id >= success.id || !isSamePrinter(earlier, success)) continue;
        // An update that the same process started again has a first record without an end.
        const bool isOver = earlier.process == success.process || !isRunning(earlier.process);
        if (isOver) close.bind(1, success.id).bind(2, earlier.id).run();
    }
}

// All but the time is equal.
bool saysTheSame(RecordedVerdict one, const RecordedVerdict& other) {
    one.given = other.given;
    return one == other;
}

std::int64_t medianOf(std::vector<std::int64_t> values) {
    std::ranges::sort(values);
    const std::size_t middle = values.size() / 2;
    if (values.size() % 2 == 1) return values[middle];
    return values[middle - 1] + (values[middle] - values[middle - 1]) / 2;
}

} // namespace

bool isSamePrinter(const UpdateRecord& one, const UpdateRecord& other) {
    if (one.serial.empty() || other.serial.empty()) return one.key == other.key;
    return one.serial == other.serial && (one.model == other.model || one.model.empty() || other.model.empty());
}

UpdateHistory::UpdateHistory(UpdateHistoryOptions options) : _options(std::move(options)) {}

fs::path UpdateHistory::file() const {
    return _options.folder.empty() ? fs::path{} : _options.folder / kFileName;
}

std::string UpdateHistory::problemOf(Access access, const HistoryFailure& failure) const {
    const std::string name = file().string();
    if (failure.kind == HistoryFailure::Kind::newer) {
        return localizedFormat("The history of updates %s was written by a newer version of this program and was not "
                               "changed. Install that version to use it.",
                               name);
    }
    if (failure.kind == HistoryFailure::Kind::noRecord) {
        return localizedFormat("The history of updates %s has no record of this update any more. Do not replace or "
                               "delete it during an update.",
                               name);
    }
    if (access == Access::read) {
        return localizedFormat("The history of updates %s cannot be read (%s). Check its rights and those of its "
                               "folder.",
                               name, failure.reason);
    }
    return localizedFormat("The history of updates %s cannot be written (%s). Check its rights, those of its folder "
                           "and the free space on its disk.",
                           name, failure.reason);
}

std::string UpdateHistory::perform(Access access, const Operation& operation) {
    const std::scoped_lock lock(_mutex);
    if (_options.folder.empty()) {
        return localizedFormat("There is no folder for the history of updates. Set HOME or XDG_STATE_HOME to an "
                               "absolute path.");
    }
    try {
        attempt(access, operation);
        return {};
    } catch (const HistoryFailure& failure) {
        if (failure.kind != HistoryFailure::Kind::damaged) return problemOf(access, failure);
        return beginAfresh(access, operation, failure.file);
    }
}

void UpdateHistory::attempt(Access access, const Operation& operation) const {
    std::error_code error;
    if (access == Access::create) {
        error = createStateFolder(_options.folder);
    } else if (!fs::exists(file(), error) && !error) {
        if (access == Access::change) throw HistoryFailure{.kind = HistoryFailure::Kind::noRecord};
        return;
    }
    if (error) throw HistoryFailure{.reason = error.message()};
    using Missing = HistoryDatabase::Missing;
    HistoryDatabase database(file(), access == Access::create ? Missing::isCreated : Missing::isNothing,
                             _options.longestWait);
    if (database.isThere()) return operation(database);
    if (access == Access::change) throw HistoryFailure{.kind = HistoryFailure::Kind::noRecord};
}

std::string UpdateHistory::beginAfresh(Access access, const Operation& operation, std::uint64_t damagedFile) const {
    std::string report;
    try {
        const std::int64_t now = _options.wallTime != nullptr ? _options.wallTime() : 0;
        // kept is empty if another process has renamed the file already; that process reports it.
        if (const fs::path kept = putDamagedHistoryAside(file(), damagedFile, now, _options.longestWait);
            !kept.empty()) {
            report = localizedFormat("The history of updates %s is damaged. It was kept as %s; a new one was begun. "
                                     "Repair it and restore it, or delete it.",
                                     file().string(), kept.string());
        }
    } catch (const HistoryFailure& failure) {
        return localizedFormat(
            "The history of updates %s is damaged. It could not be renamed (%s) and was not changed. "
            "Repair or delete it.",
            file().string(), failure.reason);
    }
    try {
        attempt(access, operation);
    } catch (const HistoryFailure& failure) {
        // The record was in the damaged file, which is reported already.
        if (failure.kind == HistoryFailure::Kind::noRecord && !report.empty()) return report;
        return (report.empty() ? "" : report + ' ') + problemOf(access, failure);
    }
    return report;
}

UpdateHistory::Begun UpdateHistory::begin(const UpdateRecord& record) {
    Begun begun;
    begun.problem = perform(Access::create, [&](HistoryDatabase& database) {
        Transaction transaction(database);
        const std::int64_t id = storeBegin(database, record);
        Statement(database,
                  "DELETE FROM updates WHERE id <= (SELECT id FROM updates ORDER BY id DESC LIMIT 1 OFFSET ?)")
            .bind(1, static_cast<std::int64_t>(_options.mostRecords))
            .run();
        transaction.commit();
        begun.id = id;
    });
    return begun;
}

std::string UpdateHistory::update(std::int64_t id, const UpdateChanges& changes) {
    if (id == 0) return {};
    return perform(Access::change, [&](HistoryDatabase& database) {
        Transaction transaction(database);
        Statement update(database,
                         "UPDATE updates SET device_key = COALESCE(?, device_key), place = COALESCE(?, place), "
                         "model = COALESCE(?, model), serial = COALESCE(?, serial), "
                         "archive_folder = COALESCE(?, archive_folder), "
                         "version_before = COALESCE(?, version_before), "
                         "version_offered = COALESCE(?, version_offered) WHERE id = ?");
        update.bind(1, changes.key).bind(2, changes.place).bind(3, changes.model).bind(4, changes.serial);
        update.bind(5, changes.archiveFolder).bind(6, changes.versionBefore).bind(7, changes.versionAvailable);
        update.bind(8, id).run();
        if (database.changedRows() == 0) throw HistoryFailure{.kind = HistoryFailure::Kind::noRecord};
        if (changes.digests) storeDigests(database, id, *changes.digests);
        transaction.commit();
    });
}

std::string UpdateHistory::addPhase(std::int64_t id, const UpdatePhaseTime& phase) {
    if (id == 0) return {};
    return perform(Access::change, [&](HistoryDatabase& database) {
        Transaction transaction(database);
        Statement(database, "INSERT INTO phases (update_id, name, begun, duration) SELECT id, ?2, ?3, ?4 FROM updates "
                            "WHERE id = ?1 ON CONFLICT DO UPDATE SET duration = excluded.duration")
            .bind(1, id)
            .bind(2, phase.name)
            .bind(3, phase.begun)
            .bind(4, phase.duration)
            .run();
        if (database.changedRows() == 0) throw HistoryFailure{.kind = HistoryFailure::Kind::noRecord};
        transaction.commit();
    });
}

std::string UpdateHistory::complete(std::int64_t id, const RecordedVerdict& verdict) {
    if (id == 0) return {};
    return perform(Access::change, [&](HistoryDatabase& database) {
        Transaction transaction(database);
        const UpdateRecord record = requiredRecord(database, id);
        if (!record.verdicts.empty() && saysTheSame(record.verdicts.back(), verdict)) return;
        insertVerdict(database, id, verdict);
        if (verdict.isSuccess) closeInterrupted(database, record);
        transaction.commit();
    });
}

std::string UpdateHistory::dismiss(std::int64_t id) {
    return perform(Access::change, [&](HistoryDatabase& database) {
        Statement(database, "UPDATE updates SET closed_by = COALESCE(closed_by, 0) WHERE id = ?").bind(1, id).run();
        if (database.changedRows() == 0) throw HistoryFailure{.kind = HistoryFailure::Kind::noRecord};
    });
}

UpdateHistory::Records UpdateHistory::records(const UpdateFilter& filter) {
    Records found;
    found.problem = perform(Access::read, [&](HistoryDatabase& database) {
        Statement rows(database,
                       (std::string(kUpdateColumns) +
                        "WHERE (?1 = '' OR device_key = ?1 COLLATE NOCASE OR serial = ?1 COLLATE NOCASE OR "
                        "place = ?1 COLLATE NOCASE) AND (?2 IS NULL OR begun >= ?2) ORDER BY id DESC LIMIT ?3")
                           .c_str());
        // SQLite reads a negative limit as none.
        constexpr std::size_t kMost = std::numeric_limits<std::int32_t>::max();
        rows.bind(1, filter.printer)
            .bind(2, filter.since)
            .bind(3, static_cast<std::int64_t>(std::min(filter.limit, kMost)));
        found.records = recordsOf(database, rows);
    });
    return found;
}

UpdateHistory::Records UpdateHistory::lastFailures() {
    Records found = records({.limit = kRecordsToLookAt});
    // An update that sent no command, or whose command was refused, left the printer as it was.
    std::erase_if(found.records,
                  [](const UpdateRecord& record) { return !record.hasSentCommands() || record.wasRefused(); });
    // Each record is compared with all newer ones: a record without a serial number may match two records that do not
    // match each other.
    std::vector<UpdateRecord> last;
    for (auto record = found.records.begin(); record != found.records.end(); ++record) {
        const auto isSame = [&](const UpdateRecord& newer) { return isSamePrinter(newer, *record); };
        const bool isFailure = !record->verdicts.empty() && !record->verdicts.back().isSuccess && !record->closedBy;
        if (isFailure && std::none_of(found.records.begin(), record, isSame)) last.push_back(*record);
    }
    found.records = std::move(last);
    return found;
}

UpdateHistory::Records UpdateHistory::interrupted() {
    Records found;
    found.problem =
        perform(Access::read, [&](HistoryDatabase& database) { found.records = interruptedRecords(database); });
    return found;
}

UpdateHistory::Durations UpdateHistory::usualDurations(const std::string& model) {
    struct Samples {
        std::vector<std::int64_t> durations;
        std::set<std::int64_t> updates;
    };
    std::map<std::string, Samples> phases;
    Durations usual;
    usual.problem = perform(Access::read, [&](HistoryDatabase& database) {
        Statement rows(database,
                       "SELECT name, duration, update_id FROM (SELECT p.name, p.duration, p.update_id, DENSE_RANK() "
                       "OVER (PARTITION BY p.name ORDER BY p.update_id DESC) AS age FROM phases p JOIN updates u "
                       "ON u.id = p.update_id WHERE u.model = ? AND u.is_success = 1 AND p.duration IS NOT NULL) "
                       "WHERE age <= ?");
        rows.bind(1, model).bind(2, kUsualUpdates);
        for (phases.clear(); rows.step();) {
            Samples& samples = phases[rows.text(0)];
            samples.durations.push_back(rows.integer(1));
            samples.updates.insert(rows.integer(2));
        }
    });
    for (auto& [name, samples] : phases) {
        if (samples.updates.size() >= kFewestUpdates) usual.milliseconds[name] = medianOf(std::move(samples.durations));
    }
    return usual;
}

} // namespace zul
