// The SQLite file of the history. It is opened for each call and closed again: so the next call notices that the file
// was deleted or replaced, and an idle program keeps neither file nor lock. Called by UpdateHistory on its callers'
// threads.
#include "update/HistoryDatabase.h"

#include "platform/files/Files.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/LocalizedFormat.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <poll.h>
#include <sqlite3.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>

namespace zul {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

namespace {

// flock() cannot wait with a limit, so the lock is tried again after this pause: short against the longest wait.
constexpr milliseconds kHoldPause{10};

// What each version of the tables adds to the one before. Never change a step that has been released: files that were
// made with it exist.
constexpr auto kSchemaSteps = std::to_array<const char*>({
    R"(CREATE TABLE updates (
           id INTEGER PRIMARY KEY AUTOINCREMENT,
           begun INTEGER NOT NULL,
           device_key TEXT NOT NULL,
           place TEXT NOT NULL,
           model TEXT NOT NULL,
           serial TEXT NOT NULL,
           program TEXT NOT NULL,
           program_version TEXT NOT NULL,
           user_name TEXT NOT NULL,
           archive_folder TEXT NOT NULL,
           version_before TEXT,
           version_offered TEXT,
           process INTEGER NOT NULL,
           boot TEXT NOT NULL,
           process_begun INTEGER NOT NULL,
           is_success INTEGER, -- of the last verdict; NULL without one
           closed_by INTEGER);
       CREATE INDEX updates_of_model ON updates (model, is_success);
       CREATE INDEX updates_without_end ON updates (id) WHERE is_success IS NULL AND closed_by IS NULL;
       CREATE TABLE digests (
           update_id INTEGER NOT NULL REFERENCES updates ON DELETE CASCADE,
           file TEXT NOT NULL,
           digest TEXT NOT NULL,
           PRIMARY KEY (update_id, file)) WITHOUT ROWID;
       CREATE TABLE phases (
           id INTEGER PRIMARY KEY,
           update_id INTEGER NOT NULL REFERENCES updates ON DELETE CASCADE,
           name TEXT NOT NULL,
           begun INTEGER NOT NULL,
           duration INTEGER,
           UNIQUE (update_id, name, begun));
       CREATE TABLE verdicts (
           id INTEGER PRIMARY KEY,
           update_id INTEGER NOT NULL REFERENCES updates ON DELETE CASCADE,
           given INTEGER NOT NULL,
           verdict TEXT NOT NULL,
           is_success INTEGER NOT NULL,
           reason TEXT NOT NULL,
           version_after TEXT,
           tables_written INTEGER NOT NULL,
           tables INTEGER NOT NULL,
           retries INTEGER NOT NULL);
       CREATE INDEX verdicts_of_update ON verdicts (update_id))",
});
constexpr auto kSchemaVersion = static_cast<std::int64_t>(kSchemaSteps.size());

std::string reasonOf(int systemError) {
    return std::generic_category().message(systemError);
}

// The inode; 0 if there is no such file.
std::uint64_t numberOfFile(const fs::path& file) {
    struct stat entry {};
    return ::stat(file.c_str(), &entry) == 0 ? entry.st_ino : 0;
}

// For a file name, in UTC. time: milliseconds since 1970.
std::string stampOf(std::int64_t time) {
    const auto seconds = static_cast<std::time_t>(time / 1000);
    std::tm parts{};
    std::array<char, 32> text{};
    if (::gmtime_r(&seconds, &parts) == nullptr) return {};
    return {text.data(), std::strftime(text.data(), text.size(), "-%Y%m%dT%H%M%SZ", &parts)};
}

} // namespace

FolderHold::FolderHold(const fs::path& folder, Kind kind, milliseconds longestWait)
    : _folder(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), _longestWait(longestWait) {
    if (!_folder) throw HistoryFailure{.reason = reasonOf(errno)};
    change(kind);
}

void FolderHold::change(Kind kind) {
    const auto deadline = std::chrono::steady_clock::now() + _longestWait;
    while (::flock(_folder.get(), (kind == Kind::alone ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0) {
        _isHeld = false;
        // The file system has no such locks: the history is used without one.
        if (errno != EWOULDBLOCK && errno != EINTR) return;
        if (std::chrono::steady_clock::now() >= deadline) {
            throw HistoryFailure{.reason = localizedFormat("another program is using it")};
        }
        ::poll(nullptr, 0, static_cast<int>(kHoldPause.count()));
    }
    _isHeld = true;
}

void HistoryDatabase::Close::operator()(sqlite3* connection) const {
    sqlite3_close_v2(connection);
}

HistoryDatabase::HistoryDatabase(const fs::path& file, Missing missing, milliseconds longestWait)
    : _file(file), _longestWait(longestWait), _hold(file.parent_path(), FolderHold::Kind::together, longestWait) {
    open(missing);
    if (!_isThere) return;
    if (schemaVersion() < kSchemaVersion) {
        // Open it again under the exclusive lock: another process may have made the tables meanwhile.
        _connection.reset();
        _hold.change(FolderHold::Kind::alone);
        open(missing);
        makeTables();
    }
    // Off by default in SQLite: with it the details of a removed record are removed, too.
    execute("PRAGMA foreign_keys = ON");
}

HistoryDatabase::~HistoryDatabase() = default;

void HistoryDatabase::open(Missing missing) {
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE |
                      (missing == Missing::isCreated ? SQLITE_OPEN_CREATE : 0);
    sqlite3* connection = nullptr;
    const int code = sqlite3_open_v2(_file.c_str(), &connection, flags, nullptr);
    _connection.reset(connection); // must be closed even if the file could not be opened
    check(code);
    // For locks of processes that use the file at the same time under the shared lock of the folder.
    sqlite3_busy_timeout(connection, static_cast<int>(_longestWait.count()));
    _number = numberOfFile(_file);
    const std::int64_t version = schemaVersion();
    // A newer file is not changed: this program would not fill what the newer one expects.
    if (version > kSchemaVersion) throw HistoryFailure{.kind = HistoryFailure::Kind::newer};
    _isThere = version > 0 || missing == Missing::isCreated;
    // A commit must survive a power cut: the record shows that the cut interrupted an update.
    execute("PRAGMA synchronous = FULL");
}

std::int64_t HistoryDatabase::schemaVersion() {
    Statement statement(*this, "PRAGMA user_version");
    return statement.step() ? statement.integer(0) : 0;
}

void HistoryDatabase::makeTables() {
    // Readers then never wait for a writer. The mode is kept in the file; it cannot be changed inside a transaction.
    execute("PRAGMA journal_mode = WAL");
    Transaction transaction(*this);
    for (std::int64_t version = schemaVersion(); version < kSchemaVersion; ++version) {
        execute(kSchemaSteps.at(static_cast<std::size_t>(version)));
    }
    execute(("PRAGMA user_version = " + std::to_string(kSchemaVersion)).c_str());
    transaction.commit();
}

// Throws what an SQLite result code means, with the system's reason where there is one.
void HistoryDatabase::fail(int code) const {
    // The low byte is the error; the bits above it distinguish SQLite's own reasons.
    const int kind = code & 0xFF;
    if (kind == SQLITE_NOTADB || kind == SQLITE_CORRUPT) {
        throw HistoryFailure{HistoryFailure::Kind::damaged, localizedFormat("it is damaged"), _number};
    }
    if (kind == SQLITE_BUSY) throw HistoryFailure{.reason = localizedFormat("another program is using it")};
    const int systemError = _connection != nullptr ? sqlite3_system_errno(_connection.get()) : 0;
    const bool isOfSystem = kind == SQLITE_IOERR || kind == SQLITE_CANTOPEN || kind == SQLITE_FULL;
    if (isOfSystem && systemError != 0) throw HistoryFailure{.reason = reasonOf(systemError)};
    throw HistoryFailure{.reason = _connection != nullptr ? sqlite3_errmsg(_connection.get()) : sqlite3_errstr(code)};
}

void HistoryDatabase::check(int code) const {
    if (code != SQLITE_OK) fail(code);
}

void HistoryDatabase::execute(const char* sql) {
    check(sqlite3_exec(_connection.get(), sql, nullptr, nullptr, nullptr));
}

std::int64_t HistoryDatabase::lastInsertedId() const {
    return sqlite3_last_insert_rowid(_connection.get());
}

std::int64_t HistoryDatabase::changedRows() const {
    return sqlite3_changes64(_connection.get());
}

void HistoryDatabase::Statement::Finalize::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

HistoryDatabase::Statement::Statement(HistoryDatabase& database, const char* sql) : _database(database) {
    sqlite3_stmt* statement = nullptr;
    database.check(sqlite3_prepare_v2(database._connection.get(), sql, -1, &statement, nullptr));
    _statement.reset(statement);
}

HistoryDatabase::Statement& HistoryDatabase::Statement::bind(int parameter, std::int64_t value) {
    _database.check(sqlite3_bind_int64(_statement.get(), parameter, value));
    return *this;
}

HistoryDatabase::Statement& HistoryDatabase::Statement::bind(int parameter, const std::string& text) {
    // A serial number comes from a printer and may contain any bytes.
    const std::string repaired = repairedUTF8(text);
    _database.check(sqlite3_bind_text64(_statement.get(), parameter, repaired.data(), repaired.size(), SQLITE_TRANSIENT,
                                        SQLITE_UTF8));
    return *this;
}

HistoryDatabase::Statement& HistoryDatabase::Statement::bindNull(int parameter) {
    _database.check(sqlite3_bind_null(_statement.get(), parameter));
    return *this;
}

bool HistoryDatabase::Statement::step() {
    const int code = sqlite3_step(_statement.get());
    if (code != SQLITE_ROW && code != SQLITE_DONE) _database.fail(code);
    return code == SQLITE_ROW;
}

void HistoryDatabase::Statement::reset() {
    sqlite3_reset(_statement.get()); // returns the last step's error, which step() has thrown already
}

void HistoryDatabase::Statement::run() {
    while (step()) {
    }
    reset();
}

bool HistoryDatabase::Statement::isNull(int column) const {
    return sqlite3_column_type(_statement.get(), column) == SQLITE_NULL;
}

std::int64_t HistoryDatabase::Statement::integer(int column) const {
    return sqlite3_column_int64(_statement.get(), column);
}

// Other programs may have changed the file: text that is read is repaired like text that is written.
std::string HistoryDatabase::Statement::text(int column) const {
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(_statement.get(), column));
    if (bytes == nullptr) return {};
    return repairedUTF8({bytes, static_cast<std::size_t>(sqlite3_column_bytes(_statement.get(), column))});
}

std::optional<std::string> HistoryDatabase::Statement::optionalText(int column) const {
    return isNull(column) ? std::nullopt : std::optional(text(column));
}

HistoryDatabase::Transaction::Transaction(HistoryDatabase& database) : _database(database) {
    // Takes the write lock at once: a transaction that begins by reading may not get it later.
    database.execute("BEGIN IMMEDIATE");
}

HistoryDatabase::Transaction::~Transaction() {
    // A failure needs no answer: closing the connection ends the transaction as well.
    if (_isOpen) sqlite3_exec(_database._connection.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void HistoryDatabase::Transaction::commit() {
    _database.execute("COMMIT");
    _isOpen = false;
}

fs::path putDamagedHistoryAside(const fs::path& file, std::uint64_t number, std::int64_t time,
                                milliseconds longestWait) {
    const FolderHold hold(file.parent_path(), FolderHold::Kind::alone, longestWait);
    if (!hold.isHeld()) throw HistoryFailure{.reason = localizedFormat("another program may be using it")};
    // Under the exclusive lock: only now it is certain which file has the name.
    if (numberOfFile(file) != number) return {};
    const fs::path kept = freePathLike(file.string() + ".damaged" + (time != 0 ? stampOf(time) : ""));
    // Rename the journal first: SQLite would use a journal that it finds beside a new file.
    std::error_code error;
    fs::rename(file.string() + "-wal", kept.string() + "-wal", error);
    if (!error || error == std::errc::no_such_file_or_directory) {
        fs::remove(file.string() + "-shm", error);
        fs::rename(file, kept, error);
    }
    if (error) throw HistoryFailure{.reason = error.message()};
    return kept;
}

} // namespace zul
