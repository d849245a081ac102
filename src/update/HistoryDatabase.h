// The SQLite file of the history: opened for one call, with its tables, under a lock of its folder. Used by
// UpdateHistory only. What fails is thrown as HistoryFailure and caught there. The calling thread, one at a time.
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

struct HistoryFailure {
    enum class Kind {
        unusable, // reason says why
        damaged,
        newer, // written by a later version of this program
        noRecord
    };
    Kind kind = Kind::unusable;
    std::string reason{};
    std::uint64_t file = 0; // damaged: the number of the file that was opened (its inode)
};

/// Processes that use the file hold its folder together; one that makes tables or renames the file holds it alone:
/// SQLite does not survive a rename by somebody else. A process that ends releases it.
class FolderHold {
  public:
    enum class Kind { together, alone };
    /// Waits at most so long for other processes. Throws.
    FolderHold(const std::filesystem::path& folder, Kind kind, std::chrono::milliseconds longestWait);
    /// Throws like the constructor, and then nothing is held.
    void change(Kind kind);
    /// Some network file systems know no such holds; there it is false, and other processes are not kept away.
    bool isHeld() const { return _isHeld; }

  private:
    ScopedFd _folder;
    const std::chrono::milliseconds _longestWait;
    bool _isHeld = false;
};

class HistoryDatabase {
  public:
    enum class Missing { isCreated, isNothing };
    /// Opens the file and brings its tables up to date. Throws. Where there is no file, or an empty one, and it is not
    /// to be created, isThere() is false and nothing else may be called.
    HistoryDatabase(const std::filesystem::path& file, Missing missing, std::chrono::milliseconds longestWait);
    ~HistoryDatabase();
    bool isThere() const { return _isThere; }

    /// One statement; parameters count from 1, columns from 0. Each call throws when SQLite refuses it.
    class Statement {
      public:
        Statement(HistoryDatabase& database, const char* sql);
        Statement& bind(int parameter, std::int64_t value);
        Statement& bind(int parameter, const std::string& text);
        template <class Value> Statement& bind(int parameter, const std::optional<Value>& value) {
            return value ? bind(parameter, *value) : bindNull(parameter);
        }
        /// True when there is a row.
        bool step();
        /// For the next use; parameters keep their values.
        void reset();
        void run();
        bool isNull(int column) const;
        std::int64_t integer(int column) const;
        std::string text(int column) const;
        std::optional<std::string> optionalText(int column) const;

      private:
        struct Finalize {
            void operator()(sqlite3_stmt* statement) const;
        };
        Statement& bindNull(int parameter);
        HistoryDatabase& _database;
        std::unique_ptr<sqlite3_stmt, Finalize> _statement;
    };

    /// Changes that are stored together at commit(), or not at all.
    class Transaction {
      public:
        explicit Transaction(HistoryDatabase& database);
        ~Transaction();
        void commit();

      private:
        HistoryDatabase& _database;
        bool _isOpen = true;
    };

    void execute(const char* sql);
    std::int64_t lastInsertedId() const;
    /// How many rows the last change concerned.
    std::int64_t changedRows() const;

  private:
    struct Close {
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

/// Renames a damaged file, so that a new one can be begun, unless the file is no longer the one with that number
/// (another process was faster). Returns the new name, empty when nothing was renamed. time: milliseconds since 1970,
/// for the name; 0: none. Throws.
std::filesystem::path putDamagedHistoryAside(const std::filesystem::path& file, std::uint64_t number, std::int64_t time,
                                             std::chrono::milliseconds longestWait);

} // namespace zul
