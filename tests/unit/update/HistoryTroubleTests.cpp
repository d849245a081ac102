// A history that cannot be used is reported in a sentence that names the file, and no function throws; data stored
// before is still there afterwards.
#include "unit/update/HistoryLab.h"
#include "update/HistoryDatabase.h"

#include <doctest/doctest.h>
#include <functional>
#include <set>

using namespace zul;
using namespace zul::test;

namespace {

bool names(const std::string& problem, const std::filesystem::path& file) {
    return problem.find(file.string()) != std::string::npos;
}

std::set<std::string> filesIn(const std::filesystem::path& folder) {
    std::set<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) files.insert(entry.path().filename());
    return files;
}

// A disk whose n-th write or sync fails, once or permanently, as seen by SQLite. Only for calls of one thread.
class FailingDisk {
  public:
    FailingDisk() {
        base = sqlite3_vfs_find(nullptr);
        _vfs = *base;
        _vfs.zName = "failing-disk";
        _vfs.pNext = nullptr;
        _vfs.xOpen = open;
        sqlite3_vfs_register(&_vfs, /*makeDflt=*/1);
        left = kNever;
    }
    ~FailingDisk() {
        sqlite3_vfs_register(base, /*makeDflt=*/1);
        sqlite3_vfs_unregister(&_vfs);
    }
    void failAfter(int writes, bool isForGood) {
        left = writes;
        staysBroken = isForGood;
    }
    // Stops failing. Returns whether it has failed.
    bool repair() {
        const bool hasFailed = left < 0;
        left = kNever;
        return hasFailed;
    }

  private:
    static constexpr int kNever = 1'000'000;
    struct Methods {
        sqlite3_io_methods changed; // first member: a file's pointer to it is also a pointer to the whole
        const sqlite3_io_methods* original;
    };
    static const sqlite3_io_methods* originalOf(sqlite3_file* file) {
        return reinterpret_cast<const Methods*>(file->pMethods)->original;
    }
    static bool fails() { return --left == -1 || (left < 0 && staysBroken); }
    static int open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags) {
        static std::map<const sqlite3_io_methods*, Methods> changed;
        const int code = base->xOpen(base, name, file, flags, outFlags);
        if (file->pMethods == nullptr) return code;
        Methods& methods = changed[file->pMethods];
        methods = {*file->pMethods, file->pMethods};
        methods.changed.xWrite = write;
        methods.changed.xSync = sync;
        file->pMethods = &methods.changed;
        return code;
    }
    static int write(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 at) {
        return fails() ? SQLITE_FULL : originalOf(file)->xWrite(file, bytes, count, at);
    }
    static int sync(sqlite3_file* file, int flags) {
        return fails() ? SQLITE_IOERR_FSYNC : originalOf(file)->xSync(file, flags);
    }

    static inline sqlite3_vfs* base = nullptr;
    static inline int left = kNever;
    static inline bool staysBroken = false;
    sqlite3_vfs _vfs{};
};

// Records one update, then checks that acknowledged data is stored, that the file is whole, and that the next update is
// recorded. Returns whether the disk has failed.
bool updateOnFailingDisk(HistoryLab& lab, FailingDisk& disk) {
    const auto begun = lab.history.begin(printerAt(kKey));
    const std::string phaseProblem = lab.history.addPhase(begun.id, {.name = "writing", .begun = 1, .duration = 2});
    const std::string endProblem = lab.history.complete(begun.id, success());
    CHECK((begun.id != 0) == begun.problem.empty());
    for (const std::string& problem : {begun.problem, phaseProblem, endProblem}) {
        CHECK((problem.empty() || names(problem, lab.file())));
    }
    const bool hasFailed = disk.repair();
    if (begun.id != 0) {
        const UpdateRecord record = lab.record(begun.id);
        if (phaseProblem.empty()) CHECK(record.phases.size() == 1);
        if (endProblem.empty()) CHECK(record.verdicts.size() == 1);
    }
    const auto next = lab.begin(printerAt(kKey));
    CHECK(lab.history.complete(next, success()) == "");
    CHECK(lab.record(next).verdicts.size() == 1);
    return hasFailed;
}

} // namespace

TEST_CASE("a disk that fails at any write is reported, and no acknowledged data is lost") {
    for (const bool isForGood : {false, true}) {
        int points = 0;
        for (bool hasFailed = true; hasFailed; ++points) {
            CAPTURE(points);
            HistoryLab lab;
            FailingDisk disk;
            disk.failAfter(points, isForGood);
            hasFailed = updateOnFailingDisk(lab, disk);
        }
        CHECK(points > 20); // all writes of a whole update were among them
    }
}

TEST_CASE("killing a process while it writes loses no stored data") {
    HistoryLab lab;
    for (int kills = 0; kills < 10; ++kills) {
        ChildProcess child(lab.writer());
        child.send("endless " + kKey);
        std::int64_t last = 0;
        for (int lines = 0; lines < 5 + kills; ++lines) last = std::stoll(child.readLine());
        child.kill();
        CHECK(lab.record(last).verdicts.size() == 1);
        lab.begin(printerAt(kKey));
    }
}

TEST_CASE("a full disk is reported, and the history works again when there is space") {
    HistoryLab lab;
    ChildProcess child(lab.writer());
    if (child("small-disk") != "done") {
        MESSAGE("no disk can be mounted here: not tested");
        return;
    }
    const std::string id = child("begin " + kKey);
    REQUIRE(child("fill") == "done");
    std::string problem;
    for (int count = 0; count < 100 && !names(problem, lab.file()); ++count) problem = child("begin " + kKey);
    CHECK(names(problem, lab.file()));
    CHECK(problem.find("written") != std::string::npos);
    REQUIRE(child("empty") == "done");
    CHECK(child("complete " + id) == "stored");
}

TEST_CASE("a file size limit is reported, and stored data is still there") {
    HistoryLab lab;
    const auto id = lab.begin(printerAt(kKey));
    ChildProcess child(lab.writer());
    REQUIRE(child("small-files") == "done");
    CHECK(names(child("begin " + kKey), lab.file()));
    CHECK(lab.count() == 1);
    CHECK(lab.history.complete(id, success()) == "");
}

TEST_CASE("a folder without write permission is reported") {
    HistoryLab lab;
    ::chmod(lab.folder.path.c_str(), 0555);
    ChildProcess child(lab.writer());
    if (::geteuid() == 0) REQUIRE(child("as-nobody") == "done");
    const std::string problem = child("begin " + kKey);
    CHECK(names(problem, lab.file()));
    CHECK(problem.find("Permission denied") != std::string::npos);
    CHECK(child("read") == "0");
    ::chmod(lab.folder.path.c_str(), 0755);
}

TEST_CASE("a read-only file is reported when it is written") {
    HistoryLab lab;
    lab.begin(printerAt(kKey));
    ::chmod(lab.file().c_str(), 0444);
    ::chmod(lab.file().parent_path().c_str(), 0555);
    ::chmod(lab.folder.path.c_str(), 0755);
    ChildProcess child(lab.writer());
    if (::geteuid() == 0) REQUIRE(child("as-nobody") == "done");
    CHECK(names(child("begin " + kKey), lab.file()));
    CHECK(names(child("complete 1"), lab.file()));
    CHECK(names(child("read"), lab.file()));
    ::chmod(lab.file().parent_path().c_str(), 0755);
}

TEST_CASE("a folder that cannot be created, or is not a folder, is reported") {
    HistoryLab lab;
    lab.folder.write("state", "");
    const auto begun = lab.history.begin(printerAt(kKey));
    CHECK(begun.id == 0);
    CHECK(names(begun.problem, lab.file()));
    CHECK(lab.history.records({}).problem == "");
}

TEST_CASE("a user without a home has no history, and each call says so") {
    UpdateHistory history({.folder = {}});
    const auto begun = history.begin(printerAt(kKey));
    CHECK(begun.id == 0);
    CHECK(begun.problem.find("XDG_STATE_HOME") != std::string::npos);
    CHECK(history.records({}).problem == begun.problem);
    CHECK(history.dismiss(1) == begun.problem);
}

TEST_CASE("a damaged file is renamed and reported, and the update is recorded in a new one") {
    HistoryLab lab;
    lab.begin(printerAt(kKey));
    lab.overwrite(0, 100);
    const std::string damaged = TemporaryFolder::read(lab.file());

    const auto begun = lab.history.begin(printerAt(kOtherKey));
    CHECK(begun.id != 0);
    const std::filesystem::path kept = lab.file().string() + ".damaged-20231114T221320Z";
    CHECK(names(begun.problem, kept));
    CHECK(TemporaryFolder::read(kept) == damaged);
    CHECK(lab.record(begun.id).key == kOtherKey);
    CHECK(lab.history.complete(begun.id, success()) == ""); // reported once

    lab.overwrite(0, 100);
    CHECK(names(lab.history.begin(printerAt(kKey)).problem, kept.string() + "-2"));
    CHECK(filesIn(lab.folder / "state") ==
          std::set<std::string>{"history.sqlite", kept.filename(), kept.filename().string() + "-2"});
}

TEST_CASE("damage inside the file is detected by the call that reads it") {
    HistoryLab lab;
    for (int count = 0; count < 50; ++count) lab.begin(printerAt(kKey));
    lab.overwrite(4096, 60000); // all but the first page
    const auto found = lab.history.records({});
    CHECK(found.records.empty());
    CHECK(found.problem.find("damaged") != std::string::npos);
    CHECK(lab.history.records({}).problem == "");
    CHECK(lab.history.begin(printerAt(kKey)).problem == "");
}

TEST_CASE("the record of an update whose file was damaged in between is lost without a second report") {
    HistoryLab lab;
    const auto id = lab.begin(printerAt(kKey));
    lab.overwrite(0, 100);
    const std::string problem = lab.history.complete(id, success());
    CHECK(problem.find("damaged") != std::string::npos);
    CHECK(problem.find("has no record") == std::string::npos);
    CHECK(names(lab.history.complete(id, failure()), lab.file()));
}

TEST_CASE("a damaged file is not replaced while another process uses it") {
    HistoryLab lab;
    lab.begin(printerAt(kKey));
    lab.overwrite(0, 100);
    UpdateHistoryOptions options = lab.options();
    options.longestWait = std::chrono::milliseconds(1);
    UpdateHistory history(options);
    {
        const FolderHold other(lab.folder / "state", FolderHold::Kind::together, options.longestWait);
        const auto begun = history.begin(printerAt(kKey));
        CHECK(begun.id == 0);
        CHECK(begun.problem.find("could not be renamed (another program is using it)") != std::string::npos);
        CHECK(filesIn(lab.folder / "state") == std::set<std::string>{"history.sqlite"});
    }
    CHECK(history.begin(printerAt(kKey)).id != 0);
}

TEST_CASE("tables are created by one process only") {
    HistoryLab lab;
    UpdateHistoryOptions options = lab.options();
    options.longestWait = std::chrono::milliseconds(1);
    UpdateHistory history(options);
    std::filesystem::create_directories(options.folder);
    {
        const FolderHold other(options.folder, FolderHold::Kind::together, options.longestWait);
        CHECK(names(history.begin(printerAt(kKey)).problem, lab.file()));
    }
    CHECK(history.begin(printerAt(kKey)).problem == "");
    const FolderHold other(options.folder, FolderHold::Kind::together, options.longestWait);
    CHECK(history.begin(printerAt(kKey)).problem == "");
}

TEST_CASE("a damaged file that another process has replaced meanwhile is not renamed again") {
    HistoryLab lab;
    const auto id = lab.begin(printerAt(kKey));
    CHECK(putDamagedHistoryAside(lab.file(), /*number=*/1, /*time=*/0, std::chrono::milliseconds(1)).empty());
    CHECK(lab.record(id).key == kKey);
}

TEST_CASE("the journal of a damaged file is renamed with it") {
    HistoryLab lab;
    lab.begin(printerAt(kKey));
    lab.folder.write("state/history.sqlite-wal", "journal");
    lab.folder.write("state/history.sqlite-shm", "index");
    struct stat entry {};
    REQUIRE(::stat(lab.file().c_str(), &entry) == 0);
    const auto kept = putDamagedHistoryAside(lab.file(), entry.st_ino, /*time=*/0, std::chrono::milliseconds(1));
    CHECK(kept == lab.file().string() + ".damaged");
    CHECK(filesIn(lab.folder / "state") ==
          std::set<std::string>{"history.sqlite.damaged", "history.sqlite.damaged-wal"});
}

TEST_CASE("a history of a newer version is not changed") {
    HistoryLab lab;
    lab.begin(printerAt(kKey));
    lab.execute("PRAGMA user_version = 1000");
    const std::string before = TemporaryFolder::read(lab.file());
    const auto begun = lab.history.begin(printerAt(kKey));
    CHECK(begun.id == 0);
    CHECK(begun.problem.find("newer version") != std::string::npos);
    CHECK(names(begun.problem, lab.file()));
    CHECK(lab.history.records({}).problem == begun.problem);
    CHECK(lab.history.complete(1, success()) == begun.problem);
    CHECK(TemporaryFolder::read(lab.file()) == before);
    CHECK(filesIn(lab.folder / "state") == std::set<std::string>{"history.sqlite"});
}

TEST_CASE("another program's database of the same name is not changed") {
    HistoryLab lab;
    std::filesystem::create_directories(lab.folder / "state");
    lab.execute("CREATE TABLE updates (theirs)");
    CHECK(names(lab.history.begin(printerAt(kKey)).problem, lab.file()));
    lab.execute("INSERT INTO updates (theirs) VALUES (1)");
}

TEST_CASE("an empty file, as a full disk leaves it, becomes a history") {
    HistoryLab lab;
    std::filesystem::create_directories(lab.folder / "state");
    lab.folder.write("state/history.sqlite", "");
    CHECK(lab.history.records({}).problem == "");
    CHECK(names(lab.history.complete(1, success()), lab.file()));
    CHECK(std::filesystem::file_size(lab.file()) == 0); // only a new update creates tables
    lab.begin(printerAt(kKey));
}

TEST_CASE("a missing record is reported by the calls that need it") {
    HistoryLab lab;
    const auto id = lab.begin(printerAt(kKey));
    std::filesystem::remove_all(lab.folder / "state");
    const auto checkAll = [&] {
        for (const std::string& problem :
             {lab.history.update(id, {.place = "1-5"}), lab.history.addPhase(id, {.name = "writing"}),
              lab.history.complete(id, success()), lab.history.dismiss(id)}) {
            CHECK(names(problem, lab.file()));
            CHECK(problem.find("no record") != std::string::npos);
        }
    };
    checkAll(); // no file
    lab.begin(printerAt(kOtherKey));
    lab.execute("UPDATE updates SET id = 5");
    checkAll(); // another file
    CHECK(lab.record(5).place == "");
}

TEST_CASE("a history that another program keeps locked is reported") {
    HistoryLab lab;
    const auto id = lab.begin(printerAt(kKey));
    UpdateHistoryOptions options = lab.options();
    options.longestWait = std::chrono::milliseconds(1);
    UpdateHistory history(options);
    {
        const WriteLock lock(lab.file());
        const std::string problem = history.complete(id, success());
        CHECK(names(problem, lab.file()));
        CHECK(problem.find("another program is using it") != std::string::npos);
        CHECK(history.records({}).records.size() == 1); // reading is still possible
    }
    CHECK(history.complete(id, success()) == "");
}

TEST_CASE("text that another program has changed is read as valid text") {
    HistoryLab lab;
    const auto id = lab.begin(printerAt(kKey));
    lab.execute("UPDATE updates SET place = CAST(x'ff61' AS TEXT), model = x'00ff', serial = 42");
    const UpdateRecord record = lab.record(id);
    CHECK(record.place == "\xEF\xBF\xBD"
                          "a");
    CHECK(record.model == "\xEF\xBF\xBD\xEF\xBF\xBD");
    CHECK(record.serial == "42");
}
