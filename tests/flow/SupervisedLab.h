// A lab with the supervisor of updates between the engine and the operator, as in both programs.
#pragma once

#include "Lab.h"
#include "support/TemporaryFolder.h"
#include "unit/update/ChildProcess.h"
#include "update/UpdateSupervisor.h"

#include <algorithm>
#include <atomic>
#include <doctest/doctest.h>
#include <optional>
#include <unistd.h>

namespace zul {

class SupervisedLab : public Lab, public UpdateObserver {
  public:
    /// A separate name space, so that concurrent test programs do not share locks.
    static std::string freshNameSpace() {
        static std::atomic<int> count = 0;
        return "zul-flow-" + std::to_string(::getpid()) + '-' + std::to_string(++count);
    }

    /// hasHistory: whether updates are recorded, which takes disk time. lockNames: the name space of the locks.
    explicit SupervisedLab(const std::filesystem::path& archiveFolder = sampleArchive(), bool hasHistory = true,
                           std::string lockNames = freshNameSpace())
        : Lab(archiveFolder), nameSpace(std::move(lockNames)),
          supervisor({.mainQueue = mainQueue,
                      .clock = clock,
                      .alerts = operatorDesk,
                      .printersWithKey = [this](const std::string& key) { return attached(key); },
                      .setKept = [this](std::uint32_t location, bool isKept) { kept[location] = isKept; },
                      .seesArrivals = [this] { return areArrivalsSeen; },
                      .locks = &locks,
                      .takeClaim = [this](const std::string&) { return std::exchange(claim, std::nullopt); },
                      .returnClaim = [this](const std::string&, PrinterLock lock) { claim = std::move(lock); },
                      .recorder = hasHistory ? &recorder : nullptr,
                      .archive = &archive,
                      .keepAwake = [this](bool isUnderWay) { isKeptAwake = isUnderWay; }},
                     {}) {
        recorder.setProblemHandler([this](const std::string& text) { notes.push_back(text); });
        supervisor.setObserver(this);
        alertSwitch.to = &supervisor;
        environment.events = &supervisor;
    }
    ~SupervisedLab() override {
        supervisor.setObserver(nullptr);
        alertSwitch.to = &operatorDesk;
        environment.events = nullptr;
    }

    std::vector<std::shared_ptr<TBUSBPrinterZUL>> attached(const std::string& key) const {
        auto printers = controller->printers();
        std::erase_if(printers, [&](const auto& one) { return one->keyUSBdevice() != key || one->isReleased(); });
        return printers;
    }
    /// The operator agrees to an update and confirms it.
    void beginUpdate(UpdateSupervisor::Equal equal = UpdateSupervisor::Equal::install) {
        supervisor.begin(printer(), equal);
        rest(std::chrono::seconds(1));
        agree();
        if (operatorDesk.title().starts_with("-- Warning --")) {
            REQUIRE(operatorDesk.press(operatorDesk.buttons().at(1)));
        }
    }
    void agree() {
        REQUIRE(operatorDesk.title() == "Attention:");
        operatorDesk.setAgreed(true);
        REQUIRE(operatorDesk.press("Continue"));
        rest(std::chrono::milliseconds(100));
    }
    /// Starts an update and agrees: the confirmation or another question is shown.
    void beginUpToQuestion() {
        supervisor.begin(printer(), UpdateSupervisor::Equal::install);
        rest(std::chrono::seconds(1));
        agree();
        rest(std::chrono::seconds(1));
    }
    /// Starts an update of each attached printer, agrees and confirms.
    void beginAllUpdates() {
        for (const auto& one : controller->printers()) {
            supervisor.begin(one, UpdateSupervisor::Equal::install);
            rest(std::chrono::seconds(1));
            agree();
            rest(std::chrono::seconds(1));
            REQUIRE(operatorDesk.press(operatorDesk.buttons().at(1)));
        }
    }
    /// A VK14 at 1-1 does not come back from its loader's restart, and one with its serial number is attached at 1-2.
    /// Returns the second one's number on the bus.
    std::size_t comeBackElsewhere(const std::string& moreFaults = {}) {
        startWithVK14("location=1-1,fault=never-back@FLASH_REWRITE" + moreFaults);
        beginUpdate();
        rest(std::chrono::seconds(10));
        const std::size_t other = attach("VK14,location=1-2,serial=000001");
        rest(std::chrono::seconds(20));
        REQUIRE(update().cameBackAt == "1-2");
        return other;
    }
    void advanceTo(UpdatePhase phase) {
        for (int step = 0; step < 3000 && update().state.phase != phase; ++step) advance(std::chrono::milliseconds(50));
        REQUIRE(update().state.phase == phase);
    }
    /// Simulates an earlier run that began the update of the attached printer and was killed in this phase.
    void cutOffEarlierRun(const std::string& phase) {
        test::ChildProcess process({ZUL_HISTORY_WRITER, stateFolder.path.string()});
        REQUIRE(process("cut-off " + printer()->keyUSBdevice() + " " + phase) == "stored");
        process.kill();
        supervisor.readInterrupted([] {});
        rest(std::chrono::seconds(1));
    }
    /// Sends an event of the attached printer to the supervisor and runs until all queues are idle.
    void happens(PrinterEvent::What what) {
        const auto subject = printer();
        supervisor.printerEvent({.key = subject->keyUSBdevice(),
                                 .location = subject->locationText(),
                                 .attachment = subject->creationToken(),
                                 .what = std::move(what)});
        rest(std::chrono::milliseconds(10));
    }
    const Update& update() const {
        REQUIRE(supervisor.updates().size() == 1);
        return supervisor.updates().begin()->second;
    }
    UpdateResult result() const { return update().verdict.result; }
    std::ptrdiff_t timesSeen(const std::string& command) const {
        const Wire seen = wire();
        return std::ranges::count(seen, command);
    }

    void updateDidChange(const std::string&) override { ++changes; }
    void updateDidEnd(const std::string& key) override { ends.push_back(supervisor.updates().at(key).verdict.result); }

    void noteDidArise(const std::string& text) override { notes.push_back(text); }
    /// The records of the history, newest first.
    std::vector<UpdateRecord> records() {
        recorder.flush();
        auto found = UpdateHistory({.folder = stateFolder.path}).records({});
        CHECK(found.problem == "");
        return std::move(found.records);
    }
    /// The newest record of the history; a default one if there is none.
    UpdateRecord newestRecord() {
        const auto found = records();
        return found.empty() ? UpdateRecord{} : found.front();
    }

    TemporaryFolder stateFolder;
    const std::string nameSpace;
    std::optional<PrinterLock> claim; // the operator's, of the only printer
    PrinterLocks locks{{.program = "flow_tests", .nameSpace = nameSpace}};
    UpdateRecorder recorder{mainQueue, clock, {.folder = stateFolder.path}, "flow_tests", "1.0"};
    UpdateSupervisor supervisor;
    std::map<std::uint32_t, bool> kept; // by location
    bool areArrivalsSeen = true;
    bool isKeptAwake = false; // the machine
    int changes = 0;
    std::vector<std::string> notes;
    std::vector<UpdateResult> ends; // every verdict, in order
};

} // namespace zul
