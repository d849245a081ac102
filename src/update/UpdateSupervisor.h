// The supervisor of updates: begins them, follows them through the printer's restarts, says when advice is due, judges
// them by facts, and ends them. The window and the command line only show what it says and pass answers on. It sends
// nothing to a printer itself. Main queue, unless a comment says otherwise.
#pragma once

#include "Classes/Outlets.h"
#include "Classes/PrinterEvents.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/FirmwareArchive.h"
#include "platform/dispatch/Queue.h"
#include "update/PrinterLocks.h"
#include "update/UpdateMonitor.h"
#include "update/UpdateRecorder.h"
#include "update/UpdateTexts.h"
#include "update/UpdateVerdict.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zul {

/// Who shows updates. Called on the main queue.
class UpdateObserver {
  public:
    virtual ~UpdateObserver() = default;
    /// Something about this printer's update has changed, or half a second has passed while it is under way. Also the
    /// first notice of an update that began without begin(): a printer's own alert may lead to one.
    virtual void updateDidChange(const std::string& key) = 0;
    /// The verdict is there, or it has been corrected.
    virtual void updateDidEnd(const std::string& key) = 0;
    /// What holder(), interruptedText() and isNotAnswering() return may have changed for a printer that is not updated.
    virtual void conditionsMayHaveChanged() {}
    /// Something that the operator should know and that changes no update.
    virtual void noteDidArise(const std::string& /*text*/) {}
};

/// One update, under way or ended.
struct Update {
    UpdateState state;
    UpdateVerdict verdict;
    UpdateExpectation expectation;
    UsualDurations usual;
    std::string name; // of the printer
    std::string model;
    std::string picture;
    std::string location;        // where the printer is attached
    std::string cameBackAt;      // the other place at which it came back; empty if it did not
    std::string replacedBy;      // serial number of another printer that is at its place now; empty if none is
    std::string advice;          // what to do now; empty if nothing needs to be done
    bool isAsking = false;       // a question about this printer waits for the operator
    bool isStalled = false;      // no sign of life for longer than the phase takes
    bool isLate = false;         // it gives signs of life, and the phase takes longer than it ever should
    bool isWaiting = false;      // it is attached and the update cannot continue: not ready, or held by another program
    bool mayBeDismissed = false; // nothing has come nearer to the end for long
    bool isDismissed = false;    // hidden by the operator, until the update makes progress
    bool isStopRequested = false; // ends at the next point at which the printer can be left
    Clock::TimePoint endedAt;
    std::weak_ptr<TBUSBPrinterZUL> printer; // whose action it was; its alerts stay its own when it leaves

    bool isOpen() const { return verdict.isOpen(); }
};

/// What the supervisor works with.
struct UpdateServices {
    MainQueue& mainQueue;
    Clock& clock;
    /// Shows alerts to the operator.
    AlertOutlet& alerts;
    /// The attached printer with a key; null if there is none.
    std::function<std::shared_ptr<TBUSBPrinterZUL>(const std::string& key)> printerWithKey;
    /// While true the bus keeps the interface of the printer at this location over closes and restarts; may be empty.
    std::function<void(std::uint32_t locationID, bool isKept)> setKept = {};
    /// Whether the arrival of a printer will be seen; empty: it will.
    std::function<bool()> seesArrivals = {};
    /// Reserves printers for the updates of this process; null: nobody else is there.
    PrinterLocks* locks = nullptr;
    /// Hands over the lock with which the operator has claimed this printer, so that its update has it; nullopt if it
    /// is not claimed. May be empty.
    std::function<std::optional<PrinterLock>(const std::string& key)> takeClaim = {};
    /// Hands that lock back if the printer is still claimed after its update. May be empty.
    std::function<void(const std::string& key, PrinterLock lock)> returnClaim = {};
    /// Keeps the records of updates; null: there are none.
    UpdateRecorder* recorder = nullptr;
    /// Whose folder and digests the records name; null: none.
    FirmwareArchive* archive = nullptr;
    /// Keeps the machine awake while an update is under way; may be empty. Often called with the same value.
    std::function<void(bool isUnderWay)> keepAwake = {};
};

struct UpdateSettings {
    /// Advice after this time without progress, instead of the longest time of each phase.
    std::optional<Clock::Duration> stallAfter = {};
    /// An update without progress for this long ends; nullopt: it is waited for as long as the program runs.
    std::optional<Clock::Duration> giveUpAfter = {};
};

class UpdateSupervisor final : public AlertOutlet, public PrinterEventsOutlet {
  public:
    using Printer = std::shared_ptr<TBUSBPrinterZUL>;

    UpdateSupervisor(UpdateServices services, UpdateSettings settings);
    ~UpdateSupervisor() override;

    void setObserver(UpdateObserver* observer) { _observer = observer; }
    void setSettings(const UpdateSettings& settings) { _settings = settings; }
    Clock::TimePoint now() const { return _services.clock.now(); }

    // ---- actions ----------------------------------------------------------------------------------------------------

    enum class Equal { skip, install };
    /// Begins the update of an attached printer, or explains in its verdict why it cannot begin. With Equal::skip a
    /// printer that has the available versions already is left alone. A printer whose update is under way is only
    /// started again if that update has stalled.
    void begin(const Printer& printer, Equal equal);
    /// Ends all updates as soon as their printers can be left: at once, or when the whole image is sent or the tables
    /// are written, and after 60 s in any case.
    void requestStop();
    /// Forgets an update that has ended, and hides one that has stalled until it gets on.
    void dismiss(const std::string& key);

    // ---- questions --------------------------------------------------------------------------------------------------

    const std::map<std::string, Update>& updates() const { return _updates; }
    /// The printer's firmware and all color tables that it reports are those of the archive.
    bool isUpToDate(TBUSBPrinterZUL& printer) const;
    /// Why no update of this printer may be begun now; empty if one may.
    std::string reasonAgainst(const std::string& key) const;
    /// Why nothing but its update may be started on this printer now: no question, claim, reset or reconnection. Empty
    /// if all of that may. An update that has stalled may be started again; a reset in its middle may break the
    /// printer.
    std::string reasonAgainstActions(const std::string& key) const;
    /// It has taken the image and gives no sign of life: another start would send a second image to a printer that may
    /// still be at work.
    bool mayGetSecondImage(const std::string& key) const;
    /// Why an update of this printer should be started, for its row: "update was interrupted at 2026-11-22 03:10:27,
    /// start it to complete". There is a reason if the last update that changed something in the printer was cut off or
    /// failed, or if the printer is in its loader. Empty if there is none, while the printer is being updated, and
    /// while another program uses it.
    std::string interruptedText(TBUSBPrinterZUL& printer) const;
    /// The other program that holds the attached printer; nullopt if none does.
    std::optional<InterfaceHolder> holder(const std::string& key) const { return _monitor.holder(key); }
    /// The attached printer did not answer its last questions as it should: it needs to be switched off and on.
    bool isNotAnswering(const std::string& key) const { return _monitor.isNotAnswering(key); }
    /// Finds the updates that earlier runs did not end; then done runs on the main queue.
    void readInterrupted(Block done);
    /// A printer must not lose its power now.
    bool isAnyUnderWay() const;
    /// A printer is between the command to enter its loader and its last table.
    bool isAnyBetweenCommands() const;
    /// Of all updates under way, from 0 to 1.
    double progress() const;

    // ---- for the engine ---------------------------------------------------------------------------------------------

    /// The engine's alerts come through here on their way to the operator.
    void beginAlert(AlertDescription alert) override;
    /// Any thread.
    void printerEvent(const PrinterEvent& event) override;

  private:
    /// What is kept beside an update.
    struct Course {
        bool isBegun = false;    // the engine works on it
        bool isRecorded = false; // the history has a record of it
        std::optional<PrinterLock> lock = {};
        std::optional<UpdatePhase> lockedPhase = {}; // that the lock answers
        std::optional<InterfaceHolder> holder = {};  // another process that has the lock
        std::string lockProblem = {};                // why there is no lock, as the operator has read it
        std::vector<ArchiveProblem> fileProblems = {};
        bool isIdentityReported = false; // the operator knows that the loader does not report its device ID
        bool isAskedOnceMore = false;    // after the report, for answers that are missing
        int roundsNeeded = 1;            // rounds of questions after the report before it is judged
        int pendingAlerts = 0;           // shown or waiting for their turn
        bool wasClaimed = false;         // by the operator, before the update
        bool isClaimLock = false;        // the lock was that of the claim
        std::uint32_t locationID = 0;    // of the printer, for the bus
        std::uint16_t vendorID = 0;
        std::uint16_t productID = 0;
        std::vector<std::string> serialNumbers; // by which it is recognised when it comes back
        std::string ownSerialNumber;            // as it answered before the update; empty if it did not
        std::optional<UpdateState> judged = {}; // what the last verdict went by; nullopt: it has not ended yet
        std::uint32_t judgedAttachment = 0;     // whose answers may correct the verdict
        bool isSurelyItsPrinter = true;         // whose answers they are: attached since, or known by its serial number
        bool isSettled = false; // by now another program or another printer makes the answers: they correct nothing
        Clock::TimePoint stopDeadline;         // with isStopRequested
        Clock::TimePoint dismissedAt;          // with isDismissed
        std::vector<AlertDescription> reports; // of the engine, kept back until the verdict is there
    };

    Update& makeUpdate(const std::string& key, const Printer& printer);
    void start(const std::string& key);
    void startEngine(const std::string& key);
    bool takeLock(const std::string& key);
    void releaseLock(const std::string& key);
    void showPhaseToOthers(const Update& update);
    void record(const std::string& key, Block stored);
    UpdateRecord recordOf(const Update& update) const;
    std::string serialAfterSuccess(const Update& update) const;
    void completeRecord(Update& update);
    void learnUsual(const std::string& key);
    const UpdateRecord* incompleteRecord(TBUSBPrinterZUL& printer) const;
    std::string startText(TBUSBPrinterZUL& printer) const;
    bool isLastUpdateIncomplete(TBUSBPrinterZUL& printer) const;
    void judge(Update& update, UpdateResult result) const;
    void explain(Update& update) const;
    void endWait(const Update& update);
    void continueBegin(const std::string& key, Equal equal);
    void startOnceMore(const Printer& printer);
    bool areArrivalsSeen() const;
    bool areFilesFit(const std::string& key, TBUSBPrinterZUL& printer);
    std::optional<UpdateResult> whatForbids(const std::string& key, TBUSBPrinterZUL& printer);
    void note(const std::string& text) const;
    bool askFirst(const std::string& key, const Printer& printer, Equal equal);
    void adopt(const std::string& key);
    void beginMonitor(const std::string& key, TBUSBPrinterZUL& printer);
    void keepInterface(const std::string& key, bool isKept);
    void releaseInterface(const std::string& key);

    void handleHolder(const std::string& key);
    void handleEvent(const PrinterEvent& event);
    void handleDeclined(const std::string& key, AlertKind question);
    std::vector<std::string> serialNumbersOf(const TBUSBPrinterZUL& printer) const;
    bool isItsPrinter(const Course& course, const TBUSBPrinterZUL& printer) const;
    bool hasItsNumber(const Course& course, const TBUSBPrinterZUL& printer) const;
    Printer returnedPrinter(const std::string& key) const;
    bool isOnlyOneAway(const std::string& key) const;
    void lookForReturns();
    void recogniseReturn(const PrinterEvent& event);
    bool isUnrecognised(const Update& update) const;
    bool isReplaced(Update& update);
    void answered(const AlertDescription& alert, int answer);
    void adoptThen(const AlertDescription& alert, int answer);
    void showReports(const std::string& key);
    void showVerdictFirst(const Update& update, const AlertDescription& report);

    void refresh(const std::string& key);
    void refreshOpen(Update& update);
    void reportMissingIdentity(const Update& update);
    void reviewEnded(Update& update);
    void correct(Update& update);
    static bool mayUpdate(const InterfaceHolder& holder);
    bool isUpdatedElsewhere(const std::string& key);
    void reopen(Update& update);
    void showFlags(Update& update);
    std::optional<UpdateResult> resultOf(Update& update);
    std::optional<UpdateResult> resultWhileChecking(const Update& update) const;
    std::optional<UpdateResult> resultAfterImage(const Update& update) const;
    std::optional<UpdateResult> resultAfterReport(Update& update);
    UpdateResult resultByFacts(Update& update);
    std::optional<UpdateResult> resultOfPatience(const Update& update) const;
    void end(const std::string& key, UpdateResult result);
    void startTicking();
    void tick();
    void notifyChange(const std::string& key);

    const UpdateServices _services;
    UpdateSettings _settings;
    UpdateObserver* _observer = nullptr;
    UpdateMonitor _monitor;
    std::map<std::string, Update> _updates;
    std::map<std::string, Course> _courses;
    std::vector<UpdateRecord> _interrupted; // by earlier ends of programs, the newest first
    std::vector<UpdateRecord> _failed;      // the last updates of printers in earlier runs
    std::uint64_t _timer = 0;
    /// Blocks that are still queued when this is destroyed find it expired.
    std::shared_ptr<UpdateSupervisor*> _self;
};

} // namespace zul
