// What the history stores and returns, and which updates it reports as interrupted.
#include "unit/update/HistoryLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace zul::test;

namespace {

UpdateRecord fullRecord() {
    return {.begun = 1700000000001,
            .key = kKey,
            .place = "1-4",
            .model = "VK14",
            .serial = "000042",
            .program = "zulctl",
            .programVersion = "2.06",
            .user = "kiosk",
            .archiveFolder = "/srv/firmware",
            .digests = {{"VK14 01.61.fw", "00ff"}, {"VK14_300_0161.CWD", "abcd"}},
            .versionBefore = "VK14 01.60",
            .versionAvailable = "VK14 01.61"};
}

// Stores an update of the model with the given duration of one phase.
void storeUpdate(HistoryLab& lab, std::int64_t duration, const RecordedVerdict& verdict, const char* phase = "writing",
                 const char* model = "VK14") {
    UpdateRecord record = printerAt(kKey);
    record.model = model;
    const auto id = lab.begin(record);
    CHECK(lab.history.addPhase(id, {.name = phase, .begun = 1, .duration = duration}) == "");
    CHECK(lab.history.complete(id, verdict) == "");
}

std::vector<std::int64_t> idsOf(const UpdateHistory::Records& found) {
    CHECK(found.problem == "");
    std::vector<std::int64_t> ids;
    for (const auto& record : found.records) ids.push_back(record.id);
    return ids;
}

using Ids = std::vector<std::int64_t>;

} // namespace

TEST_CASE("a record is returned as it was stored") {
    HistoryLab lab;
    UpdateRecord record = fullRecord();
    record.id = lab.begin(record);
    record.process = identityOfThisProcess();
    CHECK(lab.record(record.id) == record);

    record.phases = {{"checking", 10, 5}, {"writing", 15, 120000}, {"writing", 99, std::nullopt}};
    for (const auto& phase : record.phases) CHECK(lab.history.addPhase(record.id, phase) == "");
    record.verdicts = {{.given = 1700000123456,
                        .verdict = "failed",
                        .isSuccess = false,
                        .reason = "Two of three tables were written.",
                        .versionAfter = "VK14 01.61",
                        .tablesWritten = 2,
                        .tables = 3,
                        .retries = 4}};
    CHECK(lab.history.complete(record.id, record.verdicts[0]) == "");
    CHECK(lab.record(record.id) == record);
}

TEST_CASE("unknown values of an update are returned as unknown") {
    HistoryLab lab;
    const auto id = lab.begin(printerAt(kKey));
    CHECK(lab.history.complete(id, success()) == "");
    const UpdateRecord record = lab.record(id);
    CHECK_FALSE(record.versionBefore);
    CHECK_FALSE(record.versionAvailable);
    CHECK_FALSE(record.verdicts.at(0).versionAfter);
    CHECK_FALSE(record.closedBy);
    CHECK(record.digests.empty());
}

TEST_CASE("a change of a record keeps the fields that it does not name") {
    HistoryLab lab;
    UpdateRecord record = fullRecord();
    record.id = lab.begin(record);
    record.process = identityOfThisProcess();
    CHECK(lab.history.update(record.id, {}) == "");
    CHECK(lab.record(record.id) == record);

    CHECK(lab.history.update(record.id, {.place = "1-5", .versionBefore = "VK14 01.59"}) == "");
    record.place = "1-5";
    record.versionBefore = "VK14 01.59";
    CHECK(lab.record(record.id) == record);

    record.key = kOtherKey;
    record.model = "VK18";
    record.serial = "7";
    record.archiveFolder = "/a";
    record.versionAvailable = "VK18 01.00";
    record.digests = {{"one", "two"}};
    CHECK(lab.history.update(record.id, {.key = kOtherKey,
                                         .model = "VK18",
                                         .serial = "7",
                                         .archiveFolder = "/a",
                                         .versionAvailable = "VK18 01.00",
                                         .digests = record.digests}) == "");
    CHECK(lab.record(record.id) == record);
}

TEST_CASE("a phase that was stored at its beginning gets its duration at its end") {
    HistoryLab lab;
    const auto id = lab.begin(printerAt(kKey));
    CHECK(lab.history.addPhase(id, {.name = "writing", .begun = 10}) == "");
    CHECK(lab.record(id).phases == std::vector<UpdatePhaseTime>{{"writing", 10, std::nullopt}});
    CHECK(lab.history.addPhase(id, {.name = "writing", .begun = 10, .duration = 77}) == "");
    CHECK(lab.record(id).phases == std::vector<UpdatePhaseTime>{{"writing", 10, 77}});
}

TEST_CASE("a corrected verdict keeps the first one, and an equal one is not stored twice") {
    HistoryLab lab;
    const auto id = lab.begin(printerAt(kKey));
    CHECK(lab.history.complete(id, failure()) == "");
    RecordedVerdict again = failure();
    again.given = 3000;
    CHECK(lab.history.complete(id, again) == "");
    CHECK(lab.record(id).verdicts == std::vector{failure()});

    CHECK(lab.history.complete(id, success()) == "");
    CHECK(lab.record(id).verdicts == std::vector{failure(), success()});
}

TEST_CASE("records are found by key, serial number or location in any case, newest first") {
    HistoryLab lab;
    UpdateRecord record = fullRecord();
    record.serial = "ab42";
    record.begun = 500;
    const auto first = lab.begin(record);
    record.begun = 400; // the clock was set back
    record.place = "1-5";
    const auto second = lab.begin(record);
    const auto other = lab.begin(printerAt(kOtherKey, "77"));

    CHECK(idsOf(lab.history.records({})) == Ids{other, second, first});
    CHECK(idsOf(lab.history.records({.printer = "2a7100030000000a"})) == Ids{second, first});
    CHECK(idsOf(lab.history.records({.printer = "AB42"})) == Ids{second, first});
    CHECK(idsOf(lab.history.records({.printer = "1-4"})) == Ids{first});
    CHECK(idsOf(lab.history.records({.printer = "1-"})).empty());
    CHECK(idsOf(lab.history.records({.printer = "%"})).empty());
    CHECK(idsOf(lab.history.records({.since = 500})) == Ids{other, first});
    CHECK(idsOf(lab.history.records({.since = 501})) == Ids{other});
    CHECK(idsOf(lab.history.records({.limit = 2})) == Ids{other, second});
    CHECK(idsOf(lab.history.records({.limit = static_cast<std::size_t>(-1)})).size() == 3);
}

TEST_CASE("without a file there are no records, and reading creates none") {
    HistoryLab lab;
    CHECK(idsOf(lab.history.records({})).empty());
    CHECK(idsOf(lab.history.interrupted()).empty());
    CHECK(lab.history.usualDurations("VK14").milliseconds.empty());
    CHECK_FALSE(std::filesystem::exists(lab.folder / "state"));
}

TEST_CASE("calls for an update that could not be recorded have no effect") {
    HistoryLab lab;
    CHECK(lab.history.update(0, {}) == "");
    CHECK(lab.history.addPhase(0, {.name = "writing"}) == "");
    CHECK(lab.history.complete(0, success()) == "");
    CHECK_FALSE(std::filesystem::exists(lab.file()));
}

TEST_CASE("the oldest records are deleted for new ones, with all that belongs to them") {
    HistoryLab lab;
    UpdateHistoryOptions options = lab.options();
    options.mostRecords = 3;
    UpdateHistory history(options);
    Ids ids;
    for (int count = 0; count < 5; ++count) {
        ids.push_back(history.begin(fullRecord()).id);
        CHECK(history.addPhase(ids.back(), {.name = "writing", .begun = 1, .duration = 2}) == "");
        CHECK(history.complete(ids.back(), failure()) == "");
    }
    CHECK(idsOf(history.records({})) == Ids{ids[4], ids[3], ids[2]});
    // The number of rows that belong to three records.
    lab.execute(
        "CREATE TABLE counted (digests CHECK (digests = 6), phases CHECK (phases = 3), verdicts CHECK (verdicts = 3));"
        "INSERT INTO counted SELECT (SELECT count(*) FROM digests), (SELECT count(*) FROM phases), "
        "(SELECT count(*) FROM verdicts)");
}

TEST_CASE("any bytes can be stored as text, and are returned as valid text") {
    HistoryLab lab;
    UpdateRecord record = printerAt("'); DROP TABLE updates; --", "\xFF\xFE");
    record.place = std::string("a\0b", 3);
    record.model = "\"%_?1 \\ \n\r\t\x1B[31m";
    record.user = "Größe € 😀";
    record.archiveFolder = std::string(1'000'000, 'x');
    record.digests = {{"\xC3", "one"}, {"'", "two"}};
    const auto id = lab.begin(record);
    CHECK(lab.history.addPhase(id, {.name = "';--", .begun = 1}) == "");
    CHECK(lab.history.complete(id, {.given = 1, .verdict = "\xED\xA0\x80", .reason = "?1"}) == "");

    const UpdateRecord stored = lab.record(id);
    CHECK(stored.key == record.key);
    CHECK(stored.serial == "\xEF\xBF\xBD\xEF\xBF\xBD");
    CHECK(stored.place == "a\xEF\xBF\xBD"
                          "b");
    CHECK(stored.model == record.model);
    CHECK(stored.user == record.user);
    CHECK(stored.archiveFolder == record.archiveFolder);
    CHECK(stored.digests == std::map<std::string, std::string>{{"\xEF\xBF\xBD", "one"}, {"'", "two"}});
    CHECK(stored.phases.at(0).name == "';--");
    CHECK(stored.verdicts.at(0).reason == "?1");
    CHECK(idsOf(lab.history.records({.printer = record.key})) == Ids{id});
    CHECK(idsOf(lab.history.records({.printer = "' OR '1' = '1"})).empty());
}

TEST_CASE("the record of a killed process is interrupted, also while it is a zombie") {
    for (const bool isReaped : {true, false}) {
        CAPTURE(isReaped);
        HistoryLab lab;
        ChildProcess child(lab.writer());
        const auto id = std::stoll(child("begin " + kKey));
        CHECK(idsOf(lab.history.interrupted()).empty()); // it may still be updating
        isReaped ? child.kill() : child.killWithoutReaping();

        const auto found = lab.history.interrupted();
        REQUIRE(idsOf(found) == Ids{id});
        CHECK(found.records[0].key == kKey);
        CHECK(found.records[0].begun == 1000);
    }
}

TEST_CASE("a completed record is not interrupted, whatever happened to its process") {
    HistoryLab lab;
    ChildProcess child(lab.writer());
    CHECK(child("complete " + child("begin " + kKey)) == "stored");
    child.kill();
    CHECK(idsOf(lab.history.interrupted()).empty());
    CHECK(lab.count() == 1);
}

TEST_CASE("a record of this process is not interrupted while the process lives") {
    HistoryLab lab;
    lab.begin(printerAt(kKey));
    CHECK(idsOf(lab.history.interrupted()).empty());
}

TEST_CASE("a living process is identified by its start time, whatever its name") {
    HistoryLab lab;
    const auto program = lab.folder / "odd) Z 1 (name";
    std::filesystem::copy_file(ZUL_HISTORY_WRITER, program);
    ChildProcess child({program.string(), (lab.folder / "state").string()});
    const auto id = std::stoll(child("begin " + kKey));
    CHECK(idsOf(lab.history.interrupted()).empty());
    child.kill();
    CHECK(idsOf(lab.history.interrupted()) == Ids{id});
}

TEST_CASE("a process id that was reused, or is from before a reboot, belongs to an ended process") {
    for (const char* change : {"process_begun = process_begun + 1", "boot = 'another'", "process_begun = 0"}) {
        CAPTURE(change);
        HistoryLab lab;
        const auto id = lab.begin(printerAt(kKey));
        lab.execute(std::string("UPDATE updates SET ") + change);
        CHECK(idsOf(lab.history.interrupted()) == Ids{id});
    }
}

TEST_CASE("a success closes the interrupted records of its printer, and no others") {
    HistoryLab lab;
    ChildProcess child(lab.writer());
    const auto first = std::stoll(child("begin " + kKey));
    const auto second = std::stoll(child("begin " + kKey));
    const auto other = std::stoll(child("begin " + kOtherKey));
    child.kill();
    REQUIRE(idsOf(lab.history.interrupted()) == Ids{other, second, first});

    const auto failed = lab.begin(printerAt(kKey));
    CHECK(lab.history.complete(failed, failure()) == "");
    CHECK(idsOf(lab.history.interrupted()) == Ids{other, second, first});

    const auto completed = lab.begin(printerAt(kKey));
    CHECK(lab.history.complete(completed, success()) == "");
    CHECK(idsOf(lab.history.interrupted()) == Ids{other});
    CHECK(lab.record(first).closedBy == completed);
    CHECK(lab.record(second).closedBy == completed);
    CHECK(lab.record(first).verdicts.empty());
}

TEST_CASE("a verdict that is corrected to a success closes the interrupted records, too") {
    HistoryLab lab;
    ChildProcess child(lab.writer());
    child("begin " + kKey);
    child.kill();
    const auto id = lab.begin(printerAt(kKey));
    CHECK(lab.history.complete(id, failure()) == "");
    CHECK(idsOf(lab.history.interrupted()).size() == 1);
    CHECK(lab.history.complete(id, success()) == "");
    CHECK(idsOf(lab.history.interrupted()).empty());
}

TEST_CASE("a success does not close the open record of a process that is still updating, or later records") {
    HistoryLab lab;
    ChildProcess living(lab.writer()), killed(lab.writer());
    living("begin " + kKey);
    const auto id = lab.begin(printerAt(kKey));
    const auto later = std::stoll(killed("begin " + kKey));
    killed.kill();
    CHECK(lab.history.complete(id, success()) == "");
    living.kill();
    CHECK(idsOf(lab.history.interrupted()).size() == 2);
    CHECK(idsOf(lab.history.interrupted()).front() == later);
}

TEST_CASE("a printer is identified by serial number and model, and by its key if a serial number is unknown") {
    struct Case {
        UpdateRecord interrupted, completed;
        bool isSame;
    };
    UpdateRecord otherModel = printerAt(kOtherKey, "1"), unknownModel = printerAt(kOtherKey, "1");
    otherModel.model = "VK18";
    unknownModel.model = "";
    const Case cases[] = {
        {printerAt(kKey, "1"), printerAt(kOtherKey, "1"), true}, // moved to another port
        {printerAt(kKey, "1"), unknownModel, true},
        {printerAt(kKey, "1"), otherModel, false},
        {printerAt(kKey, "1"), printerAt(kKey, "2"), false}, // another one at the same port
        {printerAt(kKey, ""), printerAt(kKey, "2"), true},   // it was in its loader
        {printerAt(kKey, "1"), printerAt(kKey, ""), true},
        {printerAt(kKey, "1"), printerAt(kOtherKey, ""), false},
    };
    for (const Case& one : cases) {
        CAPTURE(&one - cases);
        HistoryLab lab;
        const auto interrupted = lab.begin(one.interrupted);
        lab.execute("UPDATE updates SET boot = 'another'");
        CHECK(lab.history.complete(lab.begin(one.completed), success()) == "");
        CHECK(idsOf(lab.history.interrupted()) == (one.isSame ? Ids{} : Ids{interrupted}));
    }
}

TEST_CASE("a failure that was completed in the loader remains completed when another printer is attached at its "
          "location") {
    HistoryLab lab;
    const auto update = [&](const std::string& serial, const RecordedVerdict& verdict) {
        const auto id = lab.begin(printerAt(kKey, serial));
        REQUIRE(lab.history.addPhase(id, {.name = "writing", .begun = 1000}) == "");
        REQUIRE(lab.history.complete(id, verdict) == "");
        return id;
    };
    const auto failed = update("1", failure());
    CHECK(idsOf(lab.history.lastFailures()) == Ids{failed});
    update("", success()); // a loader does not report its number
    CHECK(idsOf(lab.history.lastFailures()).empty());
    update("2", success());
    CHECK(idsOf(lab.history.lastFailures()).empty());
    const auto again = update("1", failure());
    CHECK(idsOf(lab.history.lastFailures()) == Ids{again});
}

TEST_CASE("a dismissed interrupted record is not reported again") {
    HistoryLab lab;
    const auto id = lab.begin(printerAt(kKey));
    lab.execute("UPDATE updates SET boot = 'another'");
    CHECK(lab.history.dismiss(id) == "");
    CHECK(idsOf(lab.history.interrupted()).empty());
    CHECK(lab.record(id).closedBy == 0);
}

TEST_CASE("the usual time is the median of at least three successful updates of the model") {
    HistoryLab lab;
    const auto usual = [&] { return lab.history.usualDurations("VK14").milliseconds; };
    storeUpdate(lab, 100, success());
    storeUpdate(lab, 900, success());
    storeUpdate(lab, 1, failure());
    storeUpdate(lab, 1, success(), "writing", "VK18");
    storeUpdate(lab, 1, success(), "restarting");
    CHECK(usual().empty());
    storeUpdate(lab, 300, success());
    CHECK(usual() == std::map<std::string, std::int64_t>{{"writing", 300}});
    storeUpdate(lab, 400, success());
    CHECK(usual() == std::map<std::string, std::int64_t>{{"writing", 350}});
}

TEST_CASE("the usual time is taken from the last twenty updates with the phase") {
    HistoryLab lab;
    for (int count = 0; count < 20; ++count) storeUpdate(lab, 1000, success());
    for (int count = 0; count < 9; ++count) storeUpdate(lab, 2000, success());
    for (int count = 0; count < 30; ++count) storeUpdate(lab, 1, success(), "checking"); // up to date: no command sent
    CHECK(lab.history.usualDurations("VK14").milliseconds.at("writing") == 1000);
    storeUpdate(lab, 2000, success());
    CHECK(lab.history.usualDurations("VK14").milliseconds.at("writing") == 1500);
    storeUpdate(lab, 2000, success());
    CHECK(lab.history.usualDurations("VK14").milliseconds.at("writing") == 2000);
}

TEST_CASE("phases without an end, and a phase that occurred three times in one update, are not part of the usual "
          "time") {
    HistoryLab lab;
    const auto id = lab.begin(printerAt(kKey));
    for (int count = 0; count < 3; ++count) {
        CHECK(lab.history.addPhase(id, {.name = "writing", .begun = count, .duration = 5}) == "");
    }
    CHECK(lab.history.complete(id, success()) == "");
    for (int count = 0; count < 3; ++count) {
        const auto other = lab.begin(printerAt(kKey));
        CHECK(lab.history.addPhase(other, {.name = "restarting", .begun = 1}) == "");
        CHECK(lab.history.complete(other, success()) == "");
    }
    CHECK(lab.history.usualDurations("VK14").milliseconds.empty());
}

TEST_CASE("an update whose success was corrected to a failure is not part of the usual time") {
    HistoryLab lab;
    for (int count = 0; count < 2; ++count) storeUpdate(lab, 100, success());
    const auto id = lab.begin(printerAt(kKey));
    CHECK(lab.history.addPhase(id, {.name = "writing", .begun = 1, .duration = 100}) == "");
    CHECK(lab.history.complete(id, success()) == "");
    CHECK(lab.history.usualDurations("VK14").milliseconds.size() == 1);
    CHECK(lab.history.complete(id, failure()) == "");
    CHECK(lab.history.usualDurations("VK14").milliseconds.empty());
}

TEST_CASE("concurrent processes and threads lose no data") {
    HistoryLab lab;
    constexpr int kEach = 40;
    const std::string many = "many " + std::to_string(kEach) + ' ';
    ChildProcess one(lab.writer()), other(lab.writer()); // neither finds a file
    one.send(many + kKey);
    other.send(many + kOtherKey);
    std::string problem;
    for (int count = 0; count < kEach && problem.empty(); ++count) {
        problem = lab.history.begin(printerAt("third")).problem + lab.history.records({}).problem;
    }
    CHECK(problem == "");
    CHECK(one.readLine() == "stored");
    CHECK(other.readLine() == "stored");
    CHECK(idsOf(lab.history.records({.printer = "third"})).size() == kEach);
    for (const auto& key : {kKey, kOtherKey}) {
        const auto found = lab.history.records({.printer = key});
        CHECK(idsOf(found).size() == kEach);
        for (const auto& record : found.records) {
            CHECK(record.phases.size() == 1);
            CHECK(record.verdicts.size() == 1);
        }
    }
}

TEST_CASE("an idle history keeps no file open") {
    HistoryLab lab;
    lab.begin(printerAt(kKey));
    CHECK(lab.count() == 1);
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        CHECK_FALSE(std::filesystem::read_symlink(entry, error).string().starts_with(lab.folder.path.string()));
    }
    CHECK_FALSE(std::filesystem::exists(lab.file().string() + "-wal"));
}
