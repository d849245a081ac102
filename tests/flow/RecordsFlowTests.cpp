// Updates as other processes and later runs see them: the printer's lock, the history, and updates that earlier runs
// did not end.
#include "SupervisedLab.h"

#include "platform/foundation/LocalTime.h"
#include "unit/update/ChildProcess.h"

#include <algorithm>
#include <doctest/doctest.h>

using namespace zul;
using namespace zul::test;
using namespace std::chrono_literals;

namespace {

using Equal = UpdateSupervisor::Equal;

// Another process of this product that has reserved the printer.
struct OtherProgram {
    explicit OtherProgram(SupervisedLab& lab)
        : process({ZUL_LOCK_HOLDER, lab.nameSpace, "0"}), key(lab.printer()->keyUSBdevice()) {
        REQUIRE(process("lock " + key + " update") == "locked");
    }
    ChildProcess process;
    std::string key;
};

std::vector<std::string> phasesOf(const UpdateRecord& record) {
    std::vector<std::string> names;
    for (const UpdatePhaseTime& phase : record.phases) names.push_back(phase.name);
    return names;
}

bool hasFirmwareCommand(const Wire& wire) {
    return std::ranges::any_of(wire, [](const auto& command) { return command.starts_with("FW_UPD"); });
}

} // namespace

// ---- the lock -------------------------------------------------------------------------------------------------------

TEST_CASE("an update of a printer that another process has reserved is refused with that process") {
    SupervisedLab lab;
    lab.startWithVK14();
    OtherProgram other(lab);
    CHECK(other.process("phase programming") == "set");
    lab.forgetWire();
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest();
    CHECK(lab.result() == UpdateResult::busy);
    REQUIRE(lab.update().verdict.holder);
    CHECK(lab.update().verdict.holder->pid == other.process.pid());
    CHECK(lab.update().verdict.holder->phase == "programming");
    CHECK(lab.update().verdict.reason == "lock_holder uses the printer (process " +
                                             std::to_string(other.process.pid()) + "): update, programming its flash");
    CHECK(lab.operatorDesk.waiting() == 0);
    CHECK(lab.wire().empty());
}

TEST_CASE("the process that has reserved a printer is queried for its phase during the update, and not afterwards") {
    SupervisedLab lab;
    lab.startWithVK14("restart=5000");
    const std::string key = lab.printer()->keyUSBdevice();
    lab.beginUpdate();
    lab.advance(1s);
    auto answer = lab.locks.ask(key);
    REQUIRE(answer);
    CHECK(answer->activity == "update");
    CHECK(answer->phase == "restarting into loader");
    CHECK(answer->program == "flow_tests");
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK_FALSE(lab.locks.ask(key));
}

TEST_CASE("a printer found in its loader that another process has reserved is not used") {
    SupervisedLab lab;
    lab.startWithVK14("mode=loader");
    lab.bus.unplug(0);
    lab.rest();
    lab.bus.plug(0); // a printer that is attached for the second time is known, so its loader is reported
    lab.rest();
    OtherProgram other(lab);
    lab.forgetWire();
    REQUIRE(lab.operatorDesk.press(lab.operatorDesk.buttons().at(1)));
    lab.rest();
    CHECK(lab.result() == UpdateResult::busy);
    CHECK_FALSE(hasFirmwareCommand(lab.wire()));
}

TEST_CASE("a printer that this program has claimed is updated") {
    SupervisedLab lab;
    lab.startWithVK14();
    const auto claim = lab.locks.tryLock(lab.printer()->keyUSBdevice(), "claim");
    REQUIRE(claim.lock);
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
}

TEST_CASE("a printer of a dismissed update is free for other programs until it continues") {
    SupervisedLab lab;
    lab.startWithVK14("fault=never-back@FLASH_REWRITE");
    const std::string key = lab.printer()->keyUSBdevice();
    lab.beginUpdate();
    lab.advance(5min);
    REQUIRE(lab.update().mayBeDismissed);
    CHECK(lab.locks.ask(key));
    lab.supervisor.dismiss(key);
    CHECK_FALSE(lab.locks.ask(key));
    lab.advance(1s);
    lab.bus.plug(0);
    lab.rest(2s);
    CHECK(lab.locks.ask(key));
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
}

TEST_CASE("the lock of a claim becomes that of the update, and is released with it") {
    SupervisedLab lab;
    lab.startWithVK14();
    const std::string key = lab.printer()->keyUSBdevice();
    lab.claim = lab.locks.tryLock(key, kClaimActivity).lock;
    REQUIRE(lab.claim);
    lab.beginUpdate();
    CHECK_FALSE(lab.claim);
    lab.advance(5s); // it is back in its loader
    auto answer = lab.locks.ask(key);
    REQUIRE(answer);
    CHECK(answer->activity == "update");
    CHECK(answer->phase == "in the loader");
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK_FALSE(lab.claim); // it ended with the restart
    CHECK_FALSE(lab.locks.ask(key));
}

TEST_CASE("the lock of a claim is handed back when nothing was sent") {
    SupervisedLab lab;
    lab.startWithVK14();
    const std::string key = lab.printer()->keyUSBdevice();
    lab.claim = lab.locks.tryLock(key, kClaimActivity).lock;
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    CHECK_FALSE(lab.claim);
    lab.supervisor.requestStop();
    CHECK(lab.result() == UpdateResult::stopped);
    CHECK(lab.claim);
    CHECK(lab.locks.ask(key));
}

TEST_CASE("an update that is given up before it begins ends, whatever keeps it from its beginning") {
    SupervisedLab lab;
    lab.supervisor.setSettings({.giveUpAfter = 1s});
    lab.startWithVK14("fault=silence@STATUS#2,fault=silence@STATUS#3");
    lab.bus.unplug(0);
    lab.rest();
    lab.bus.plug(0);
    lab.advance(10ms);
    lab.supervisor.begin(lab.printer(), Equal::install); // it does not answer the first question for its status
    lab.advance(2s);
    CHECK(lab.ends == std::vector<UpdateResult>{UpdateResult::unanswered});
    CHECK(lab.operatorDesk.history().empty());
}

TEST_CASE("a second image is not sent to a printer that another program has reserved meanwhile") {
    SupervisedLab lab;
    lab.startWithVK14("fault=never-back@FLASH_PROGRAM");
    const auto first = lab.printer();
    const std::string key = first->keyUSBdevice();
    lab.beginUpdate();
    lab.rest(3min);
    REQUIRE(lab.supervisor.mayGetSecondImage(key));
    lab.supervisor.dismiss(key);
    ChildProcess other({ZUL_LOCK_HOLDER, lab.nameSpace, "0"});
    REQUIRE(other("lock " + key + " update") == "locked");
    lab.supervisor.begin(first, Equal::install);
    lab.rest(1s);
    CHECK(lab.update().isDismissed);
    CHECK(lab.operatorDesk.waiting() == 0);
    REQUIRE(lab.notes.size() == 1);
    CHECK(lab.notes.front().find("lock_holder uses the printer") == 0);
}

// ---- the history ----------------------------------------------------------------------------------------------------

TEST_CASE("an update has its record before its first question to the operator") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    REQUIRE(lab.operatorDesk.title() == "Attention:");
    const UpdateRecord record = lab.newestRecord();
    CHECK(record.key == lab.printer()->keyUSBdevice());
    CHECK(record.place == "1-1");
    CHECK(record.model == "VK14");
    CHECK(record.serial == "000001");
    CHECK(record.program == "flow_tests");
    CHECK(record.versionBefore == "VK14 01.60");
    CHECK(record.versionAvailable == "VK14 01.61");
    CHECK(record.archiveFolder == Lab::sampleArchive().string());
    CHECK(record.digests.size() == 3);
    CHECK(phasesOf(record) == std::vector<std::string>{"checking"});
    CHECK(record.verdicts.empty());
}

TEST_CASE("the record of a successful update has each phase once, with its duration, and its verdict") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.beginUpdate();
    lab.rest();
    const UpdateRecord record = lab.newestRecord();
    CHECK(phasesOf(record) == std::vector<std::string>{"checking", "entering loader", "restarting into loader",
                                                       "in the loader", "writing", "programming", "restarting",
                                                       "restarted", "color tables"});
    for (const UpdatePhaseTime& phase : record.phases) CHECK_MESSAGE(phase.duration, phase.name);
    CHECK(record.phases.at(2).duration == 2000); // the time that the virtual printer takes
    REQUIRE(record.verdicts.size() == 1);
    CHECK(record.verdicts.front().verdict == "succeeded");
    CHECK(record.verdicts.front().isSuccess);
    CHECK(record.verdicts.front().versionAfter == "VK14 01.61");
    CHECK(record.verdicts.front().tablesWritten == 2);
    CHECK(record.verdicts.front().tables == 2);
    CHECK(record.verdicts.front().retries == 0);
}

TEST_CASE("a declined update has a record with its reason") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.supervisor.begin(lab.printer(), Equal::skip);
    lab.rest(1s);
    CHECK(lab.operatorDesk.press("Quit"));
    lab.rest(1s);
    CHECK(lab.newestRecord().verdicts.at(0).verdict == "declined");
    CHECK(lab.newestRecord().verdicts.at(0).reason == "it was declined");
}

TEST_CASE("a printer that is up to date gets no record") {
    SupervisedLab current;
    current.startWithVK14("firmware=VK14 01.61,tables=0161");
    current.supervisor.begin(current.printer(), Equal::skip);
    current.rest();
    CHECK(current.result() == UpdateResult::upToDate);
    CHECK(current.newestRecord().id == 0);
}

TEST_CASE("a corrected verdict is corrected in the record") {
    SupervisedLab lab;
    lab.startWithVK14("fault=never-back@FLASH_PROGRAM");
    UpdateSettings settings;
    settings.giveUpAfter = 3min;
    lab.supervisor.setSettings(settings);
    lab.beginUpdate();
    lab.advance(5min);
    REQUIRE(lab.result() == UpdateResult::notBack);
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    const UpdateRecord record = lab.newestRecord();
    REQUIRE(record.verdicts.size() == 2);
    CHECK(record.verdicts.at(0).verdict == "not back");
    CHECK(record.verdicts.at(1).verdict == "succeeded");
}

TEST_CASE("an unusable history is reported once per cause and does not stop the update") {
    SupervisedLab lab;
    std::filesystem::create_directory(lab.stateFolder.path / "history.sqlite");
    lab.startWithVK14();
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    REQUIRE(lab.notes.size() == 2);
    CHECK(lab.notes.at(0).find("history.sqlite cannot be read") != std::string::npos);
    CHECK(lab.notes.at(1).find("history.sqlite cannot be written") != std::string::npos);
}

TEST_CASE("the usual time of a phase on a model comes from its past updates") {
    SupervisedLab lab;
    UpdateHistory history({.folder = lab.stateFolder.path});
    for (int count = 0; count < 3; ++count) {
        const auto begun = history.begin({.begun = 1, .key = "other", .model = "VK14"});
        CHECK(history.addPhase(begun.id, {.name = "programming", .begun = 2, .duration = 123000}) == "");
        CHECK(history.complete(begun.id, {.given = 3, .verdict = "succeeded", .isSuccess = true}) == "");
    }
    lab.startWithVK14();
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    CHECK(usualDuration(UpdatePhase::programming, lab.update().usual) == 123s);
    CHECK(longestDuration(UpdatePhase::programming, lab.update().usual) == 246s);
}

// ---- earlier runs ---------------------------------------------------------------------------------------------------

TEST_CASE("an update that an earlier run did not end is offered for completion until one succeeds") {
    SupervisedLab lab;
    lab.startWithVK14("firmware=VK14 01.61,tables=0161"); // by the versions alone there is nothing to do
    CHECK(lab.supervisor.interruptedText(*lab.printer()).empty());
    CHECK(lab.supervisor.isUpToDate(*lab.printer()));
    lab.cutOffEarlierRun("color tables");
    CHECK(lab.supervisor.interruptedText(*lab.printer()) ==
          "update was interrupted at " + localTimeText(1000) + ", start it to complete");
    CHECK_FALSE(lab.supervisor.isUpToDate(*lab.printer()));
    lab.beginUpdate(Equal::skip);
    CHECK(lab.supervisor.interruptedText(*lab.printer()).empty()); // it is being completed
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.supervisor.interruptedText(*lab.printer()).empty());
    CHECK(lab.supervisor.isUpToDate(*lab.printer()));
}

TEST_CASE("an update interrupted before its first command needs no completion") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.cutOffEarlierRun("checking");
    CHECK(lab.supervisor.interruptedText(*lab.printer()).empty());
}

TEST_CASE("a printer in its loader is offered for completion without a record") {
    SupervisedLab lab;
    lab.attach("VK14,mode=loader");
    lab.start();
    CHECK(lab.supervisor.interruptedText(*lab.printer()) == "start the update to complete it");
}

TEST_CASE("a printer that waits for the rest of an image is not called unchanged, and its operator is shown the "
          "remedy") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@STATUS#2,fault=silence@STATUS#3");
    lab.cutOffEarlierRun("writing");
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest();
    if (lab.operatorDesk.title() == "Attention:") lab.agree();
    lab.rest();
    CHECK(lab.result() == UpdateResult::unanswered);
    CHECK(lab.update().verdict.reason == "the transfer of the firmware was interrupted at " + localTimeText(1000) +
                                             ", and the printer waits for the rest of it");
    CHECK(lab.update().advice == "Switch the printer off and on, then start the update again: that completes it.");
}

// ---- the files ------------------------------------------------------------------------------------------------------

TEST_CASE("a missing color table is reported before the first question, and no command is sent") {
    ChangedSamples archive;
    std::filesystem::remove(archive.folder() / "VK14_600_0161.cwd");
    SupervisedLab lab(archive.folder());
    lab.startWithVK14();
    lab.forgetWire();
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest();
    CHECK(lab.result() == UpdateResult::badFiles);
    CHECK(lab.update().verdict.reason.find("VK14_600_0161.cwd is missing in") == 0);
    CHECK_FALSE(lab.update().advice.empty());
    CHECK(lab.operatorDesk.waiting() == 0);
    CHECK_FALSE(hasFirmwareCommand(lab.wire()));
}

// ---- after the verdict ----------------------------------------------------------------------------------------------

TEST_CASE("an update given up while the printer was not ready does not begin when it gets ready") {
    SupervisedLab lab;
    UpdateSettings settings;
    settings.giveUpAfter = 1min;
    lab.supervisor.setSettings(settings);
    std::string status = "status=00000:00000";                     // of the arrival and of the check
    for (int count = 0; count < 3000; ++count) status += ":01000"; // the cover is open for a long time
    lab.startWithVK14(status + ":00000");
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    lab.agree();
    if (lab.operatorDesk.title().starts_with("-- Warning --")) {
        REQUIRE(lab.operatorDesk.press(lab.operatorDesk.buttons().at(1)));
    }
    lab.rest(30min);
    CHECK(lab.ends == std::vector<UpdateResult>{UpdateResult::notReady});
    CHECK(lab.timesSeen("FW_UPDFLASH_REWRITE") == 0);
    CHECK(lab.timesSeen("STATUS") > 100); // it did wait
}

TEST_CASE("a printer whose last update failed is not up to date, whatever its versions are") {
    SupervisedLab lab;
    lab.startWithVK14("fault=stall@WTCTRLD#2");
    lab.beginUpdate();
    lab.rest();
    REQUIRE(lab.result() == UpdateResult::tablesMissing);
    CHECK_FALSE(lab.supervisor.isUpToDate(*lab.printer()));
    lab.supervisor.dismiss(lab.printer()->keyUSBdevice()); // the history holds what another run knows
    lab.supervisor.readInterrupted([] {});
    lab.rest(1s);
    CHECK_FALSE(lab.supervisor.isUpToDate(*lab.printer()));
    CHECK(lab.supervisor.interruptedText(*lab.printer()).starts_with("update of "));
    CHECK(lab.supervisor.interruptedText(*lab.printer()).ends_with(" is not complete, start it again"));
    while (lab.operatorDesk.waiting() > 0) CHECK(lab.operatorDesk.press(lab.operatorDesk.buttons().front()));
    lab.beginUpdate(Equal::skip);
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.supervisor.isUpToDate(*lab.printer()));
    CHECK(lab.supervisor.interruptedText(*lab.printer()).empty());
}

TEST_CASE("a printer that did not accept the order to restart is not offered for completion") {
    SupervisedLab lab;
    lab.startWithVK14("fault=stall@REWRITE");
    lab.beginUpdate();
    lab.rest();
    REQUIRE(lab.result() == UpdateResult::commandRefused);
    CHECK(lab.supervisor.interruptedText(*lab.printer()).empty());
}

TEST_CASE("an unresponsive printer whose update was given up during its image is not called unchanged") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@STATUS#2,fault=silence@STATUS#3");
    UpdateState givenUp;
    givenUp.key = lab.printer()->keyUSBdevice();
    givenUp.phase = UpdatePhase::writing;
    lab.recorder.begin(givenUp.key, {.key = givenUp.key, .model = "VK14"}, {});
    lab.recorder.noteState(givenUp);
    lab.recorder.complete(givenUp, {.verdict = nameOfResult(UpdateResult::notBack)});
    lab.supervisor.readInterrupted([] {});
    lab.rest(1s);
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest();
    if (lab.operatorDesk.title() == "Attention:") lab.agree();
    lab.rest();
    CHECK(lab.result() == UpdateResult::unanswered);
    CHECK(lab.update().verdict.reason.starts_with("the transfer of the firmware was interrupted at "));
    CHECK(lab.update().advice == "Switch the printer off and on, then start the update again: that completes it.");
}
