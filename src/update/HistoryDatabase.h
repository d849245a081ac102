// The SQLite file of the history and its tables, opened for one call under a lock of the folder. Used by UpdateHistory
// only, which catches the HistoryFailure that every function here may throw. Each object belongs to one thread.
#pragma once

#include "platform/files/ScopedFd.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace zul {

/// Why a call failed.
struct HistoryFailure {
    enum class Kind {
        unusable, // reason has the cause
        damaged,
        newer,   // written by a later version of this program
        noRecord // the file has no record with the given id
    };
    Kind kind = Kind::unusable;
    std::string reason{};   // in the operator's language
    std::uint64_t file = 0; // damaged: inode of the file that was opened
};

/// A lock of the history's folder. Processes that use the file share it. A process that makes tables or renames the
/// file has it exclusively, because SQLite does not survive a rename by another process. The kernel releases it when
/// the process ends.
class FolderHold {
  public:
    enum class Kind { together, alone }; // shared, exclusive
    /// Takes the lock; waits at most longestWait for other processes. Throws if the folder cannot be opened or the lock
    /// is not free in time.
    FolderHold(const std::filesystem::path& folder, Kind kind, std::chrono::milliseconds longestWait);
    /// Changes between shared and exclusive. Waits and throws like the constructor; the lock is lost if it throws.
    void change(Kind kind);
    /// False on file systems without such locks (some network ones): other processes are not kept away there.
    bool isHeld() const { return _isHeld; }

  private:
    ScopedFd _folder;
    const std::chrono::milliseconds _longestWait;
    bool _isHeld = false;
};

/// The open file.
class HistoryDatabase {
  public:
    /// What to do about a missing file: create it, or report it in isThere().
    enum class Missing { isCreated, isNothing };
    /// Opens the file and brings its tables up to date. Waits at most longestWait for each lock of another process.
    /// Throws. If there is no file with tables and Missing::isNothing is given, isThere() is false afterwards, and no
    /// other function may be called.
    HistoryDatabase(const std::filesystem::path& file, Missing missing, std::chrono::milliseconds longestWait);
    ~HistoryDatabase();
    /// The file has tables and can be used.
    bool isThere() const { return _isThere; }

    /// One SQL statement. Parameters are numbered from 1, columns from 0. Each call throws if SQLite refuses it.
    class Statement {
      public:
        /// Prepares the statement; the database must outlive it.
        Statement(HistoryDatabase& database, const char* sql);
        /// Set a parameter, and return this statement. Invalid UTF-8 in a text is replaced; nullopt is stored as NULL.
        Statement& bind(int parameter, std::int64_t value);
        Statement& bind(int parameter, const std::string& text);
        template <class Value> Statement& bind(int parameter, const std::optional<Value>& value) {
            return value ? bind(parameter, *value) : bindNull(parameter);
        }
        /// Goes to the next row; false if there is none.
        bool step();
        /// Prepares the statement for the next use; parameters keep their values. Never throws.
        void reset();
        /// Runs a statement whose rows are not needed, then resets it.
        void run();
        /// The columns of the current row. NULL is read as 0, as an empty text, or as nullopt.
        bool isNull(int column) const;
        std::int64_t integer(int column) const;
        std::string text(int column) const;
        std::optional<std::string> optionalText(int column) const;

      private:
        struct Finalize {
            /// Ends the statement, also in the middle of its rows.
            void operator()(sqlite3_stmt* statement) const;
        };
        Statement& bindNull(int parameter);
        HistoryDatabase& _database;
        std::unique_ptr<sqlite3_stmt, Finalize> _statement;
    };

    /// Changes that are stored together at commit(), or not at all.
    class Transaction {
      public:
        /// Takes the write lock. Throws if another process keeps it for longer than the longest wait.
        explicit Transaction(HistoryDatabase& database);
        /// Undoes all changes unless they were committed.
        ~Transaction();
        /// Stores the changes on the disk.
        void commit();

      private:
        HistoryDatabase& _database;
        bool _isOpen = true;
    };

    /// Runs one or more statements without parameters and results.
    void execute(const char* sql);
    /// The id of the row that was inserted last.
    std::int64_t lastInsertedId() const;
    /// The number of rows that the last INSERT, UPDATE or DELETE changed.
    std::int64_t changedRows() const;

  private:
    struct Close {
        /// Closes the connection after its last statement.
        void operator()(sqlite3* connection) const;
    };
    void open(Missing missing);
    std::int64_t schemaVersion();
    void makeTables();
    [[noreturn]] void fail(int code) const;
    void check(int code) const;

    const std::filesystem::path _file;
    const std::chrono::milliseconds _longestWait;
    FolderHold _hold;
    std::unique_ptr<sqlite3, Close> _connection;
    std::uint64_t _number = 0; // inode
    bool _isThere = false;
};

/// Renames a damaged file, so that a new one can be begun. Does not rename it if number is no longer its inode: then
/// another process has replaced it already. Returns the new name; empty if the file was not renamed. time: milliseconds
/// since 1970, for the new name; 0 leaves it out. Waits at most longestWait for other processes. Throws.
std::filesystem::path putDamagedHistoryAside(const std::filesystem::path& file, std::uint64_t number, std::int64_t time,
                                             std::chrono::milliseconds longestWait);

} // namespace zul
