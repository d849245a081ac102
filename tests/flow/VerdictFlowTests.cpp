// Verdicts after all queries of the printer: the engine's report, the device info, and corrections by later replies.
#include "SupervisedLab.h"

#include "unit/update/ChildProcess.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Results = std::vector<UpdateResult>;
const std::string kReport = "Firmware update was successful!";

// Version queries that the new firmware does not reply to: from the third, because the loader gets the second, to this
// one.
std::string silentVersions(int last) {
    std::string faults = "fault=silence@FVER#3";
    for (int question = 4; question <= last; ++question) faults += ",fault=silence@FVER#" + std::to_string(question);
    return faults;
}

// The version that the printer replies when the query is repeated.
PrinterEvent::What versionRead(const char* version) {
    return events::FirmwareVersionRead{.version = version};
}
PrinterEvent::What tableRead(std::optional<std::string> version) {
    return events::TableInfoRead{.key = HOLVEN_TBPrinterColorTableVersion, .value = std::move(version)};
}

// The reply, and the end of its round of queries.
void answers(SupervisedLab& lab, PrinterEvent::What what) {
    lab.happens(std::move(what));
    lab.happens(events::QuestionsEnded{.isComplete = true});
}

void updateOnce(SupervisedLab& lab) {
    lab.beginUpdate();
    lab.rest();
    REQUIRE(lab.ends == Results{UpdateResult::succeeded});
    REQUIRE(lab.operatorDesk.press("Finish"));
}

// Unplugs the printer and plugs the described one in at its location.
void replaceBy(SupervisedLab& lab, const std::string& settings) {
    lab.bus.unplug(0);
    lab.rest();
    lab.attach("VK14,location=1-1," + settings);
    lab.rest();
    REQUIRE(lab.rows() == 1);
}

std::vector<std::string> recordedVerdicts(SupervisedLab& lab) {
    std::vector<std::string> names;
    for (const RecordedVerdict& verdict : lab.newestRecord().verdicts) names.push_back(verdict.verdict);
    return names;
}

} // namespace

TEST_CASE("if the engine's report and the device info differ, the device info is shown first") {
    SupervisedLab lab;
    lab.startWithVK14("fault=stall@UPDATE_CW#2");
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::tablesMissing);
    REQUIRE(lab.operatorDesk.waiting() == 2);
    CHECK(lab.operatorDesk.title() == "The update is not complete.");
    CHECK(lab.operatorDesk.message().starts_with(
        "Reason: only 1 of 2 color tables were sent (the printer refused the data)."));
    REQUIRE(lab.operatorDesk.press("OK"));
    CHECK(lab.operatorDesk.title() == kReport);
}

TEST_CASE("a refused command to clear the tables is not reported as a success") {
    SupervisedLab lab;
    lab.startWithVK14("fault=stall@TBL_CL");
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::clearRefused);
    CHECK(lab.operatorDesk.title() == "The update is not complete.");
}

TEST_CASE("one lost reply to the version query does not make a successful update a failed one") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@FVER#3"); // the second one is sent to the loader
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.update().state.currentVersion == "VK14 01.61");
}

TEST_CASE("a printer without a version reply in two rounds is queried once more") {
    SupervisedLab lab;
    lab.startWithVK14(silentVersions(6)); // each query is repeated once
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
}

TEST_CASE("a version that was never read is not a success, until it is read later") {
    SupervisedLab lab;
    lab.startWithVK14(silentVersions(8));
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::versionUnread);
    lab.printer()->updateInfo();
    lab.rest();
    CHECK(lab.ends == std::vector<UpdateResult>{UpdateResult::versionUnread, UpdateResult::succeeded});
    CHECK(lab.update().verdict.isCorrected);
}

TEST_CASE("a printer found in its loader is supervised from its own alert on") {
    SupervisedLab lab;
    lab.startWithVK14("mode=loader");
    lab.bus.unplug(0);
    lab.rest();
    lab.bus.plug(0); // it is known now, so it is probed
    lab.rest(1s);
    REQUIRE(lab.operatorDesk.title() == "Attention:");
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.operatorDesk.title() == kReport);
}

// ---- corrections ----------------------------------------------------------------------------------------------------

TEST_CASE("a verdict is corrected when a late return brings other device info") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 20s});
    lab.startWithVK14("fault=never-back@FLASH_PROGRAM");
    lab.beginUpdate();
    lab.rest(1min);
    REQUIRE(lab.result() == UpdateResult::notBack);
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.ends == std::vector<UpdateResult>{UpdateResult::notBack, UpdateResult::succeeded});
    CHECK(lab.update().verdict.isCorrected);
}

TEST_CASE("a success is corrected by later replies of the printer, in the history, too") {
    SupervisedLab lab;
    lab.startWithVK14();
    updateOnce(lab);
    UpdateResult expected = UpdateResult::otherVersion;
    std::string reason = "the printer reports VK14 01.60 after the update instead of VK14 01.61";
    SUBCASE("another version") {
        lab.happens(versionRead("VK14 01.60"));
        CHECK(lab.ends == Results{UpdateResult::succeeded}); // it may be the reply to another query
        lab.happens(events::QuestionsEnded{.isComplete = true});
    }
    SUBCASE("another table") {
        answers(lab, tableRead("0160"));
        expected = UpdateResult::tablesDiffer;
        reason = "the printer reports another color table than the one that was sent (0160)";
    }
    CHECK(lab.ends == Results{UpdateResult::succeeded, expected});
    CHECK(lab.update().verdict.isCorrected);
    CHECK(lab.update().verdict.reason == reason);
    CHECK_FALSE(lab.update().advice.empty());
    CHECK_FALSE(lab.supervisor.isUpToDate(*lab.printer()));
    CHECK(recordedVerdicts(lab) == std::vector<std::string>{"succeeded", nameOfResult(expected)});
    CHECK(lab.operatorDesk.waiting() == 0);
}

TEST_CASE("a failure is corrected to another failure, and to a success, by the printer's replies") {
    SupervisedLab lab;
    lab.startWithVK14(silentVersions(8));
    lab.beginUpdate();
    lab.rest();
    REQUIRE(lab.ends == Results{UpdateResult::versionUnread});
    lab.happens(versionRead("VK14 01.60"));
    lab.happens(versionRead("VK14 01.61"));
    answers(lab, tableRead("0160"));
    CHECK(lab.ends == Results{UpdateResult::versionUnread, UpdateResult::otherVersion, UpdateResult::succeeded,
                              UpdateResult::tablesDiffer});
    CHECK(recordedVerdicts(lab) ==
          std::vector<std::string>{"version unread", "other version", "succeeded", "tables differ"});
}

TEST_CASE("a missing or invalid reply corrects no verdict") {
    SupervisedLab lab;
    lab.startWithVK14();
    updateOnce(lab);
    Results expected = {UpdateResult::succeeded};
    SUBCASE("after a success") {}
    SUBCASE("after a failure") {
        answers(lab, tableRead("0160"));
        expected.push_back(UpdateResult::tablesDiffer);
    }
    lab.happens(tableRead(std::nullopt));
    lab.happens(tableRead("NULL"));
    lab.happens(events::FirmwareVersionRead{});
    lab.happens(events::ReplyMissing{.code = kIOUSBTransactionTimeout});
    lab.happens(events::QuestionsEnded{.isComplete = false});
    CHECK(lab.ends == expected);
    lab.happens(tableRead("0161"));
    CHECK(lab.result() == UpdateResult::succeeded);
}

TEST_CASE("a stop after the report is corrected only by a reply") {
    SupervisedLab lab;
    lab.startWithVK14(silentVersions(3) + ",fault=silence@FVER#4,fault=silence@FVER#5,fault=silence@FVER#6");
    lab.beginUpdate();
    for (int step = 0; step < 3000 && !lab.update().state.isReported; ++step) lab.advance(50ms);
    lab.supervisor.requestStop();
    REQUIRE(lab.ends == Results{UpdateResult::stopped});
    lab.happens(events::QuestionsEnded{.isComplete = true});
    lab.happens(tableRead(std::nullopt));
    CHECK(lab.ends == Results{UpdateResult::stopped});
    lab.happens(versionRead("VK14 01.61"));
    CHECK(lab.ends == Results{UpdateResult::stopped, UpdateResult::succeeded});
}

TEST_CASE("no reply corrects an update after the next one of its printer has begun") {
    SupervisedLab lab;
    lab.startWithVK14();
    updateOnce(lab);
    lab.beginUpToQuestion();
    answers(lab, versionRead("VK14 01.60"));
    CHECK(lab.ends == Results{UpdateResult::succeeded});
    REQUIRE(lab.operatorDesk.press("Cancel"));
    lab.rest(1s);
    answers(lab, versionRead("VK14 01.61"));
    answers(lab, versionRead("VK14 01.60"));
    CHECK(lab.ends == Results{UpdateResult::succeeded, UpdateResult::declined});
    CHECK(recordedVerdicts(lab) == std::vector<std::string>{"declined"});
}

TEST_CASE("changes by another program's update correct no update of this one") {
    SupervisedLab lab;
    lab.startWithVK14();
    updateOnce(lab);
    std::string activity = "update";
    Results expected = {UpdateResult::succeeded};
    SUBCASE("an update") {}
    SUBCASE("a claim, which changes nothing in the printer") {
        activity = "claim";
        expected.push_back(UpdateResult::otherVersion);
    }
    test::ChildProcess other({ZUL_LOCK_HOLDER, lab.nameSpace, "0"});
    REQUIRE(other("lock " + lab.printer()->keyUSBdevice() + " " + activity) == "locked");
    answers(lab, versionRead("VK14 01.60"));
    CHECK(lab.ends == expected);
    other.kill();
    answers(lab, versionRead("VK14 01.60")); // left by that program
    CHECK(lab.ends == expected);
}

TEST_CASE("changes by another program that held the printer correct no update of this one") {
    SupervisedLab lab;
    lab.startWithVK14();
    updateOnce(lab);
    InterfaceHolder holder{.kind = InterfaceHolder::Kind::ownProgram, .program = "zulctl", .pid = 9};
    Results expected = {UpdateResult::succeeded};
    SUBCASE("an update") {
        holder.activity = "update";
    }
    SUBCASE("a claim, which changes nothing in the printer") {
        holder.activity = "claim";
        expected.push_back(UpdateResult::otherVersion);
    }
    // Meanwhile this process may not open the printer, so it reads no values.
    lab.happens(events::Opened{.code = kIOReturnExclusiveAccess, .holder = holder});
    lab.happens(events::Opened{});
    answers(lab, versionRead("VK14 01.60"));
    CHECK(lab.ends == expected);
}

TEST_CASE("a printer that returns while another program updates it is followed again when this one continues") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 5min});
    lab.startWithVK14("fault=never-back@FLASH_PROGRAM");
    const std::string key = lab.printer()->keyUSBdevice();
    lab.beginUpdate();
    lab.rest();
    REQUIRE(lab.ends == Results{UpdateResult::notBack});
    test::ChildProcess other({ZUL_LOCK_HOLDER, lab.nameSpace, "0"});
    REQUIRE(other("lock " + key + " update") == "locked");
    lab.bus.setHeldByOther(0, true);
    lab.bus.plug(0);
    lab.rest(1min);
    CHECK_FALSE(lab.update().isOpen());
    CHECK(lab.ends == Results{UpdateResult::notBack});
    other.kill();
    lab.happens(versionRead("VK14 01.60")); // left by that program
    CHECK_FALSE(lab.update().isOpen());
    lab.bus.setHeldByOther(0, false);
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::notBack, UpdateResult::succeeded});
}

TEST_CASE("a printer that returns after its update is judged by its own replies, another one at its location is not") {
    SupervisedLab lab;
    lab.startWithVK14("location=1-1");
    updateOnce(lab);
    Results expected = {UpdateResult::succeeded};
    SUBCASE("the same one with the old version") {
        replaceBy(lab, "serial=000001,firmware=VK14 01.60");
        expected.push_back(UpdateResult::otherVersion);
    }
    SUBCASE("another one with the old version") {
        replaceBy(lab, "serial=000002,firmware=VK14 01.60");
    }
    SUBCASE("another one without a serial number") {
        replaceBy(lab, "usb-serial=off,firmware=VK14 01.60,fault=silence@SERIAL_NUMBER,fault=silence@SERIAL_NUMBER#2");
    }
    SUBCASE("the same one, after another one") {
        replaceBy(lab, "serial=000002,firmware=VK14 01.60");
        lab.bus.unplug(1);
        lab.rest();
        lab.bus.plug(0);
        lab.rest();
    }
    CHECK(lab.ends == expected);
}

TEST_CASE("a version that was never read is not read from another printer at the same location") {
    SupervisedLab lab;
    lab.startWithVK14("location=1-1," + silentVersions(8));
    lab.beginUpdate();
    lab.rest();
    REQUIRE(lab.ends == Results{UpdateResult::versionUnread});
    std::string serial = "000001";
    Results expected = {UpdateResult::versionUnread};
    SUBCASE("another one") {
        serial = "000002";
    }
    SUBCASE("the same one") {
        expected.push_back(UpdateResult::succeeded);
    }
    replaceBy(lab, "firmware=VK14 01.61,tables=0161,serial=" + serial);
    CHECK(lab.ends == expected);
}
