// A folder with a history, and functions to inspect and damage it.
#pragma once

#include "support/TemporaryFolder.h"
#include "unit/update/ChildProcess.h"
#include "update/UpdateHistory.h"

#include <doctest/doctest.h>
#include <memory>
#include <sqlite3.h>
#include <sys/stat.h>

namespace zul::test {

inline const std::string kKey = "2A7100030000000A";
inline const std::string kOtherKey = "2A7100030000000B";

inline UpdateRecord printerAt(const std::string& key, const std::string& serial = {}) {
    return {.begun = 1000, .key = key, .model = "VK14", .serial = serial};
}
inline RecordedVerdict success() {
    return {.given = 2000, .verdict = "updated", .isSuccess = true};
}
inline RecordedVerdict failure() {
    return {.given = 2000, .verdict = "failed", .reason = "It does not answer."};
}

/// Another program's lock on a history: no other program can write to it until this is destroyed.
class WriteLock {
  public:
    explicit WriteLock(const std::filesystem::path& file) {
        REQUIRE(sqlite3_open(file.c_str(), &_connection) == SQLITE_OK);
        REQUIRE(sqlite3_exec(_connection, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK);
    }
    ~WriteLock() { sqlite3_close(_connection); }
    WriteLock(const WriteLock&) = delete;
    WriteLock& operator=(const WriteLock&) = delete;

  private:
    sqlite3* _connection = nullptr;
};

struct HistoryLab {
    TemporaryFolder folder;
    UpdateHistory history{options()};

    UpdateHistoryOptions options() const {
        return {.folder = folder / "state", .wallTime = [] { return std::int64_t{1700000000123}; }};
    }
    std::filesystem::path file() const { return history.file(); }
    std::vector<std::string> writer() const { return {ZUL_HISTORY_WRITER, (folder / "state").string()}; }

    std::int64_t begin(const UpdateRecord& record) {
        const auto begun = history.begin(record);
        REQUIRE(begun.problem == "");
        REQUIRE(begun.id != 0);
        return begun.id;
    }
    UpdateRecord record(std::int64_t id) {
        const auto found = history.records({});
        REQUIRE(found.problem == "");
        for (const auto& record : found.records) {
            if (record.id == id) return record;
        }
        FAIL("no such record");
        return {};
    }
    std::size_t count() {
        const auto found = history.records({});
        REQUIRE(found.problem == "");
        return found.records.size();
    }
    /// Changes the database as another program would.
    void execute(const std::string& sql) const {
        sqlite3* connection = nullptr;
        REQUIRE(sqlite3_open(file().c_str(), &connection) == SQLITE_OK);
        const int code = sqlite3_exec(connection, sql.c_str(), nullptr, nullptr, nullptr);
        sqlite3_close(connection);
        REQUIRE(code == SQLITE_OK);
    }
    void overwrite(std::size_t at, std::size_t size) const {
        std::fstream stream(file(), std::ios::in | std::ios::out | std::ios::binary);
        stream.seekp(static_cast<std::streamoff>(at));
        stream << std::string(size, '\x5A');
    }
};

} // namespace zul::test
