// What an update comes to when its printer was asked for everything: the engine's report, the facts, and corrections by
// later answers.
#include "SupervisedLab.h"

#include "unit/update/ChildProcess.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Results = std::vector<UpdateResult>;
const std::string kReport = "Firmware update was successful!";

// Questions for the version that the new firmware does not answer: from the third, as the loader gets the second, to
// this one.
std::string silentVersions(int last) {
    std::string faults = "fault=silence@FVER#3";
    for (int question = 4; question <= last; ++question) faults += ",fault=silence@FVER#" + std::to_string(question);
    return faults;
}

// The version that the printer answers when it is asked once more.
PrinterEvent::What versionRead(const char* version) {
    return events::FirmwareVersionRead{.version = version};
}
PrinterEvent::What tableRead(std::optional<std::string> version) {
    return events::TableFactRead{.key = HOLVEN_TBPrinterColorTableVersion, .value = std::move(version)};
}

// The answer, and the end of the round of questions that it belongs to.
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

// The printer leaves, and what is described comes to its place.
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

TEST_CASE("where the engine's report and the facts differ, the facts are shown in front") {
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

TEST_CASE("one lost answer to the question for the version does not make a good update a failed one") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@FVER#3"); // the second one is that of the loader
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.update().state.currentVersion == "VK14 01.61");
}

TEST_CASE("a printer that does not answer for its version in two rounds is asked once more") {
    SupervisedLab lab;
    lab.startWithVK14(silentVersions(6)); // each is asked for twice
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
}

TEST_CASE("a version that is never read is no success, until it is read later") {
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

TEST_CASE("a printer that was found in its loader is supervised from its own alert on") {
    SupervisedLab lab;
    lab.startWithVK14("mode=loader");
    lab.bus.unplug(0);
    lab.rest();
    lab.bus.plug(0); // known now: it is asked where it is
    lab.rest(1s);
    REQUIRE(lab.operatorDesk.title() == "Attention:");
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.operatorDesk.title() == kReport);
}

// ---- corrections ----------------------------------------------------------------------------------------------------

TEST_CASE("a verdict is corrected when a late return brings other facts") {
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

TEST_CASE("a success is corrected by what the printer answers afterwards, in the history, too") {
    SupervisedLab lab;
    lab.startWithVK14();
    updateOnce(lab);
    UpdateResult expected = UpdateResult::otherVersion;
    std::string reason = "the printer reports VK14 01.60 after the update instead of VK14 01.61";
    SUBCASE("another version") {
        lab.happens(versionRead("VK14 01.60"));
        CHECK(lab.ends == Results{UpdateResult::succeeded}); // it may be the answer to another question
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

TEST_CASE("a failure is corrected to another failure, and to a success, as the printer answers") {
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

TEST_CASE("a missing answer, and one that is none, correct nothing") {
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

TEST_CASE("a stop after the report is corrected by an answer, and by nothing else") {
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

TEST_CASE("no answer corrects an update after the next one of its printer has begun") {
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

TEST_CASE("what another program's update changes corrects no update of this one") {
    SupervisedLab lab;
    lab.startWithVK14();
    updateOnce(lab);
    std::string activity = "update";
    Results expected = {UpdateResult::succeeded};
    SUBCASE("an update") {}
    SUBCASE("what only claims the printer changes nothing in it") {
        activity = "claim";
        expected.push_back(UpdateResult::otherVersion);
    }
    test::ChildProcess other({ZUL_LOCK_HOLDER, lab.nameSpace, "0"});
    REQUIRE(other("lock " + lab.printer()->keyUSBdevice() + " " + activity) == "locked");
    answers(lab, versionRead("VK14 01.60"));
    CHECK(lab.ends == expected);
    other.kill();
    answers(lab, versionRead("VK14 01.60")); // what that program has left
    CHECK(lab.ends == expected);
}

TEST_CASE("what another program has changed while it held the printer corrects no update of this one") {
    SupervisedLab lab;
    lab.startWithVK14();
    updateOnce(lab);
    InterfaceHolder holder{.kind = InterfaceHolder::Kind::ownProgram, .program = "zulctl", .pid = 9};
    Results expected = {UpdateResult::succeeded};
    SUBCASE("an update") {
        holder.activity = "update";
    }
    SUBCASE("a claim changes nothing in the printer") {
        holder.activity = "claim";
        expected.push_back(UpdateResult::otherVersion);
    }
    // This process may not open the printer meanwhile, and so reads nothing of it.
    lab.happens(events::Opened{.code = kIOReturnExclusiveAccess, .holder = holder});
    lab.happens(events::Opened{});
    answers(lab, versionRead("VK14 01.60"));
    CHECK(lab.ends == expected);
}

TEST_CASE("a printer that comes back while another program updates it is followed again when this one continues") {
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
    lab.happens(versionRead("VK14 01.60")); // what that program has left
    CHECK_FALSE(lab.update().isOpen());
    lab.bus.setHeldByOther(0, false);
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::notBack, UpdateResult::succeeded});
}

TEST_CASE("a printer that returns after its update is judged by its own answers, another one at its place is not") {
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

TEST_CASE("a version that was never read is not read from another printer at the same place") {
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
