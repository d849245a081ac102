// The result of an update, derived from device info.
#include "archive/ProductTable.h"
#include "unit/update/Followed.h"
#include "update/UpdateVerdict.h"

#include <doctest/doctest.h>
#include <set>

using namespace zul;
using namespace zul::test;

namespace {

const UpdateExpectation& expected() {
    static const UpdateExpectation expectation = expectationFor(kProductVK14);
    return expectation;
}

struct Finished : Followed {
    explicit Finished(int tablesSent = 2) {
        upToTables();
        tables(tablesSent);
    }
    UpdateResult result() {
        finish();
        return judgeByReplies(state(), expected());
    }
};

} // namespace

TEST_CASE("the values that a model should report after its update come from its row of the archive") {
    CHECK(expected().version == "VK14 01.61");
    CHECK(expected().tables == 2);
    CHECK(expected().tableVersions.at("colorTableVersion") == std::set<std::string>{"0161"});
    const UpdateExpectation rz7 = expectationFor(kProductVKRZ7);
    CHECK(rz7.tableVersions.at("colorTableVersion") == std::set<std::string>{"0100", "0201"});
    const UpdateExpectation vk28 = expectationFor(kProductVK28);
    CHECK(vk28.tables == 8);
    CHECK(vk28.tableVersions.size() == 8);
    for (const char* key :
         {"colorTableVersion", "colorTableVersion300HD", "colorTableVersion600", "colorTableVersion600HD",
          "colorTableVersion610", "colorTableVersion610HD", "colorTableVersion620", "colorTableVersion620HD"}) {
        CAPTURE(key);
        CHECK(vk28.tableVersions.at(key) == std::set<std::string>{"0101"});
    }
    CHECK_FALSE(expectationFor(0x1234).version);
}

TEST_CASE("an update with the available version and every table is a success") {
    Finished update;
    update.report(events::TableInfoRead{"colorTableVersion", "0161"});
    CHECK(update.result() == UpdateResult::succeeded);
}

TEST_CASE("a version read afterwards has precedence") {
    Finished other(1);
    other.version("VK14 01.60");
    CHECK(other.result() == UpdateResult::otherVersion);
    Followed unread;
    unread.upToImage();
    unread.image();
    unread.restart();
    unread.tables(2);
    unread.finish();
    CHECK(judgeByReplies(unread.state(), expected()) == UpdateResult::versionUnread);
    CHECK(lacksAnswersOnly(unread.state(), expected()));
}

TEST_CASE("a table that was not sent makes the update incomplete, whatever was reported") {
    Finished update(1);
    update.table(2);
    update.command(kCommandTableName, kIOReturnNoDevice);
    update.command(kCommandTableWrite, kIOReturnNoDevice);
    CHECK(update.result() == UpdateResult::tablesMissing);
    Finished none(0);
    none.finish(false);
    CHECK(judgeByReplies(none.state(), expected()) == UpdateResult::tablesMissing);
}

TEST_CASE("a table that the printer reports with another version was not accepted") {
    Finished update;
    update.report(events::TableInfoRead{"colorTableVersion", "0160"});
    CHECK(update.result() == UpdateResult::tablesDiffer);
    CHECK(differingTable(update.state(), expected()) == "colorTableVersion");
}

TEST_CASE("a table's reply that is not a version proves nothing about the table") {
    for (const char* answer : {"", "NULL", "16", "01610", "O161"}) {
        CAPTURE(answer);
        Finished update;
        update.report(events::TableInfoRead{"colorTableVersion", answer});
        CHECK(update.result() == UpdateResult::succeeded);
    }
}

TEST_CASE("a missing reply about a table is queried again before the verdict") {
    Finished update;
    update.report(events::TableInfoRead{"colorTableVersion", std::nullopt});
    CHECK(update.result() == UpdateResult::succeeded);
    CHECK(lacksAnswersOnly(update.state(), expected()));
    update.report(events::TableInfoRead{"colorTableVersion", "0161"});
    CHECK_FALSE(lacksAnswersOnly(update.state(), expected()));
}

TEST_CASE("a failed clearing of the tables makes the update incomplete") {
    Finished update(0);
    update.command(kCommandTableClear, kIOUSBPipeStalled, 0);
    update.tables(2);
    CHECK(update.result() == UpdateResult::clearRefused);
}

TEST_CASE("an image whose write failed was taken if the version has changed to the available one") {
    Followed update;
    update.upToImage();
    update.bytes(1000, 2032);
    update.image(kIOReturnNoDevice);
    update.restart();
    update.version("VK14 01.61");
    update.tables(2);
    update.finish();
    CHECK(judgeByReplies(update.state(), expected()) == UpdateResult::succeeded);
}

TEST_CASE("a version that was there before does not prove that an image whose write failed was taken") {
    Followed update;
    update.monitor.beginUpdate(
        {.key = "key", .installedVersion = "VK14 01.61", .availableVersion = "VK14 01.61", .tables = 2});
    update.upToImage();
    update.bytes(1000, 2032);
    update.image(kIOUSBPipeStalled);
    update.restart();
    update.version("VK14 01.61");
    update.tables(2);
    update.finish();
    CHECK(judgeByReplies(update.state(), expected()) == UpdateResult::imageNotTaken);
}

TEST_CASE("an image that was sent whole and not confirmed was taken if the available version is read") {
    Followed update;
    update.monitor.beginUpdate({.key = "key", .availableVersion = "VK14 01.61", .tables = 2}); // it was in its loader
    update.upToImage();
    update.bytes(2032, 2032);
    update.image(kIOReturnNotResponding);
    update.restart();
    update.version("VK14 01.61");
    update.tables(2);
    update.finish();
    CHECK(judgeByReplies(update.state(), expected()) == UpdateResult::succeeded);
}

TEST_CASE("every result has a unique name") {
    std::set<std::string> names;
    for (int result = 0; result <= static_cast<int>(UpdateResult::stopped); ++result) {
        names.insert(nameOfResult(static_cast<UpdateResult>(result)));
    }
    CHECK(names.size() == static_cast<std::size_t>(UpdateResult::stopped) + 1);
    CHECK(UpdateVerdict{UpdateResult::upToDate, ""}.isSuccess());
    CHECK_FALSE(UpdateVerdict{UpdateResult::stopped, ""}.isSuccess());
}

TEST_CASE("whether a printer is untouched depends on the order, not on the reason of the failure") {
    for (int number = 0; number <= static_cast<int>(UpdateResult::stopped); ++number) {
        const auto result = static_cast<UpdateResult>(number);
        CAPTURE(nameOfResult(result));
        UpdateVerdict verdict{.result = result, .reason = ""};
        CHECK(verdict.isUntouched() == (result != UpdateResult::open && result != UpdateResult::succeeded));
        verdict.isAfterOrder = true;
        CHECK_FALSE(verdict.isUntouched());
    }
}

TEST_CASE("a printer may have received the order from its sending on, unless it has refused it") {
    Followed update;
    CHECK_FALSE(update.state().mayBeOrdered());
    update.report(events::ProgressStored{1});
    CHECK(update.state().mayBeOrdered());
    update.command(kCommandEnterLoader, kIOUSBPipeStalled);
    CHECK_FALSE(update.state().mayBeOrdered());
    update.command(kCommandEnterLoader, kIOReturnNoDevice); // it was detached before the end of the write was reported
    CHECK(update.state().mayBeOrdered());
    update.command(kCommandEnterLoader, kIOReturnNotResponding);
    CHECK(update.state().mayBeOrdered());
    update.command(kCommandEnterLoader);
    CHECK(update.state().mayBeOrdered());
}

// ---- changed device info --------------------------------------------------------------------------------------------

TEST_CASE("after the report only a reply replaces a reply") {
    Finished update;
    update.finish();
    update.report(events::TableInfoRead{"colorTableVersion", "0160"});
    for (const std::optional<std::string>& none : {std::optional<std::string>{}, {"NULL"}, {""}, {"01610"}}) {
        update.report(events::TableInfoRead{"colorTableVersion", none});
        CHECK(update.state().tableReplies.at("colorTableVersion") == "0160");
    }
    update.report(events::TableInfoRead{"colorTableVersion", "0161"});
    CHECK(update.state().tableReplies.at("colorTableVersion") == "0161");
}

TEST_CASE("before the report a missing reply replaces the earlier value of the tables") {
    Followed update;
    update.upToTables();
    update.tables(1);
    update.report(events::TableInfoRead{"colorTableVersion", "0161"});
    update.report(events::TableInfoRead{"colorTableVersion", std::nullopt});
    CHECK_FALSE(update.state().tableReplies.at("colorTableVersion"));
}

TEST_CASE("a reply and the result of a command change the verdict's input, a missing reply and a round of queries do "
          "not") {
    Finished update;
    update.finish();
    const UpdateState judged = update.state();
    update.report(events::QuestionsEnded{true});
    update.report(events::TableInfoRead{"colorTableVersion", std::nullopt});
    update.report(events::TableInfoRead{"colorTableVersion", "NULL"});
    update.report(events::FirmwareVersionRead{});
    update.status("01000");
    CHECK_FALSE(hasOtherReplies(update.state(), judged));
    UpdateState other = judged;
    SUBCASE("a version") {
        other.currentVersion = "VK14 01.60";
    }
    SUBCASE("a table's version") {
        other.tableReplies["colorTableVersion"] = "0161";
    }
    SUBCASE("the end of the image's write") {
        other.image = ImageState::unconfirmed;
    }
    SUBCASE("a table that was written") {
        ++other.tablesWritten;
    }
    SUBCASE("a refused command to clear the tables") {
        other.isClearRefused = true;
    }
    CHECK(hasOtherReplies(other, judged));
}
