// The supervisor of updates: begins them, follows them through the printer's restarts, decides when advice is due,
// judges them by what the printer and the bus reported, and ends them. The window and the command line only display its
// state and pass the operator's answers on. It sends no commands to a printer itself: the engine does. Main queue,
// unless a comment names another one.
#pragma once

#include "Classes/AlertKind.h"
#include "Classes/Outlets.h"
#include "Classes/PrinterEvents.h"
#include "archive/FirmwareArchive.h"
#include "platform/dispatch/Clock.h"
#include "platform/usb/PrinterReservations.h"
#include "update/PrinterLocks.h"
#include "update/Update.h"
#include "update/UpdateMonitor.h"
#include "update/UpdatePhase.h"
#include "update/UpdateRecord.h"
#include "update/UpdateServices.h"
#include "update/UpdateState.h"
#include "update/UpdateVerdict.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zul {

/// The engine's alerts and events pass through it.
class UpdateSupervisor final : public AlertOutlet, public PrinterEventsOutlet {
  public:
    using Printer = std::shared_ptr<TBUSBPrinterZUL>;

    /// The objects that services refer to must outlive it.
    UpdateSupervisor(UpdateServices services, UpdateSettings settings);
    ~UpdateSupervisor() override;

    /// Sets the display; null: there is none. It must exist until it is replaced.
    void setObserver(UpdateObserver* observer) { _observer = observer; }
    /// Replaces the settings, also for open updates.
    void setSettings(const UpdateSettings& settings) { _settings = settings; }
    /// The time of the clock that all times of updates are from.
    Clock::TimePoint now() const { return _services.clock.now(); }

    // ---- actions ----------------------------------------------------------------------------------------------------

    enum class Equal { skip, install };
    /// Begins the update of an attached printer. If it cannot begin, it ends with a verdict that has the reason. A
    /// printer that has the available versions is not changed with Equal::skip; its update ends as up to date. An open
    /// update is started again only if it has stalled: the call is ignored while reasonAgainst() has a text.
    void begin(const Printer& printer, Equal equal);
    /// Ends all open updates as soon as a program may end without harm to the printer: at once, or when the whole image
    /// is sent or the tables are written, and after 60 s in any case.
    void requestStop();
    /// Forgets an update that has ended. Hides an open one that has Update::mayBeDismissed until it makes progress, and
    /// releases its lock. Ignored in other cases.
    void dismiss(const std::string& key);

    // ---- questions --------------------------------------------------------------------------------------------------

    /// All updates that are open, or have ended and were not dismissed, by key of the printer.
    const std::map<std::string, Update>& updates() const { return _updates; }
    /// The printer's last update is complete, and its firmware and all color tables that it reports are those of the
    /// archive.
    bool isUpToDate(TBUSBPrinterZUL& printer) const;
    /// Operator's text of why no update of this printer may be begun now; empty if one may.
    std::string reasonAgainst(const std::string& key) const;
    /// Operator's text of why no other action than its update may be started on this printer now: no query, claim,
    /// reset or reconnection. Empty if all of these may. An update that has stalled may be started again, but a reset
    /// in the middle of it may break the printer.
    std::string reasonAgainstActions(const std::string& key) const;
    /// The printer has the image, or may have it, and its update has stalled: another start would send a second image
    /// to a printer that may still be programming its flash, restarting or receiving tables.
    bool mayGetSecondImage(const std::string& key) const;
    /// Operator's text of why an update of this printer should be started: "update was interrupted at 2026-11-22
    /// 03:10:27, start it to complete". There is a reason if the last update that changed something in the printer was
    /// interrupted or failed, or if the printer is in its loader. Empty if there is no reason, while the printer is
    /// being updated, and while another process uses it.
    std::string interruptedText(TBUSBPrinterZUL& printer) const;
    /// The other process that holds the attached printer; nullopt if none does.
    std::optional<InterfaceHolder> holder(const std::string& key) const { return _monitor.holder(key); }
    /// The attached printer did not reply to its last queries as it should: it must be switched off and on.
    bool isNotAnswering(const std::string& key) const { return _monitor.isNotAnswering(key); }
    /// The attached printer has reported its status since it was attached.
    bool hasReportedStatus(const std::string& key) const { return _monitor.hasReportedStatus(key); }
    /// Reads from the history the updates that were interrupted or failed, for interruptedText(). Then done runs on the
    /// main queue; without a history it runs inside this call.
    void readInterrupted(Block done);
    /// An update that is not hidden is past its checks: the machine must stay awake and the printer must not lose
    /// power.
    bool isAnyUnderWay() const;
    /// A printer is between the command to enter its loader and its last table, hidden updates included.
    bool isAnyBetweenCommands() const;
    /// Mean share of all open updates that are not hidden, from 0 to 1; 1 if there are none.
    double progress() const;

    // ---- for the engine ---------------------------------------------------------------------------------------------

    /// Passes an alert of the engine on to the operator. Keeps the report of an open update back until it is judged.
    void beginAlert(AlertDescription alert) override;
    /// Applies an event of the engine to the update, and posts what follows from it to the main queue. Any thread.
    void printerEvent(const PrinterEvent& event) override;

  private:
    /// Private bookkeeping of an update, which observers do not see.
    struct Course {
        bool isBegun = false;    // the engine works on it
        bool isRecorded = false; // the history has a record of it

        // The lock between processes.
        std::optional<PrinterLock> lock = {};
        std::optional<UpdatePhase> lockedPhase = {}; // the phase in the lock's replies
        std::optional<InterfaceHolder> holder = {};  // another process that has the lock
        std::string lockProblem = {};                // why there is no lock; reported to the operator once

        // Checks, queries and alerts.
        std::vector<ArchiveProblem> fileProblems = {};
        bool isIdentityReported = false; // the operator knows that the loader does not report its device ID
        bool isAskedOnceMore = false;    // another round of queries was begun after the report, for missing replies
        int roundsNeeded = 1;            // rounds of queries after the report before the update is judged
        int pendingAlerts = 0;           // alerts that are shown or wait for their turn
        bool wasClaimed = false;         // by the operator, before the update
        bool isClaimLock = false;        // the lock is that of the claim

        // The printer, as it is recognised when it comes back.
        std::uint32_t locationID = 0; // for the bus
        std::uint16_t vendorID = 0;
        std::uint16_t productID = 0;
        std::vector<std::string> serialNumbers; // any of them identifies it
        std::string ownSerialNumber;            // as it reported before the update; empty if it did not

        // The verdict and its corrections.
        std::optional<UpdateState> judged = {}; // the state that the last verdict is based on; nullopt: not ended yet
        std::uint32_t judgedAttachment = 0;     // the attachment whose replies may correct the verdict
        bool isSurelyItsPrinter = true; // that is the printer: attached all the time, or known by its serial number
        bool isSettled = false; // another process or another printer causes the replies now: no more corrections

        Clock::TimePoint stopDeadline;         // used if isStopRequested
        Clock::TimePoint dismissedAt;          // used if isDismissed
        std::vector<AlertDescription> reports; // of the engine, kept back until there is a verdict
    };

    // Begin of an update.
    Update& makeUpdate(const std::string& key, const Printer& printer);
    void start(const std::string& key);
    void startEngine(const std::string& key);
    // Lock and history.
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
    // Verdict.
    void judge(Update& update, UpdateResult result) const;
    void explain(Update& update) const;
    void endWait(const Update& update);
    // Checks before the engine starts.
    void continueBegin(const std::string& key, Equal equal);
    void startOnceMore(const Printer& printer);
    bool areArrivalsSeen() const;
    bool areFilesFit(const std::string& key, TBUSBPrinterZUL& printer);
    std::optional<UpdateResult> whatForbids(const std::string& key, TBUSBPrinterZUL& printer);
    void note(const std::string& text) const;
    bool askFirst(const std::string& key, const Printer& printer, Equal equal);
    void adopt(const std::string& key);
    void beginMonitor(const std::string& key, TBUSBPrinterZUL& printer);
    // The printer's USB interface.
    void keepInterface(const std::string& key, bool isKept);
    Printer attached(const std::string& key) const;
    void releaseInterfaces(const std::string& key, std::uint32_t attachment = 0);

    // Events.
    void handleHolder(const std::string& key);
    void handleEvent(const PrinterEvent& event);
    void handleDeclined(const std::string& key, AlertKind question);
    // Recognising printers.
    std::vector<std::string> serialNumbersOf(const TBUSBPrinterZUL& printer) const;
    bool isItsPrinter(const Course& course, const TBUSBPrinterZUL& printer) const;
    bool hasItsNumber(const Course& course, const TBUSBPrinterZUL& printer) const;
    Printer returnedPrinter(const std::string& key) const;
    bool isOnlyOneAway(const std::string& key) const;
    void lookForReturns();
    void recogniseReturn(const PrinterEvent& event);
    bool isUnrecognised(const Update& update) const;
    bool isReplaced(Update& update);
    // Alerts.
    void answered(const AlertDescription& alert, int answer);
    void adoptThen(const AlertDescription& alert, int answer);
    void showReports(const std::string& key);
    void showVerdictFirst(const Update& update, const AlertDescription& report);

    // State of an update.
    void refresh(const std::string& key);
    void refreshOpen(Update& update);
    void reportMissingIdentity(const Update& update);
    // Corrections of an ended update.
    void reviewEnded(Update& update);
    void correct(Update& update);
    static bool mayUpdate(const InterfaceHolder& holder);
    bool isUpdatedElsewhere(const std::string& key);
    void reopen(Update& update);
    // Advice and result of an open update.
    void showFlags(Update& update);
    std::optional<UpdateResult> resultOf(Update& update);
    std::optional<UpdateResult> resultWhileChecking(const Update& update) const;
    std::optional<UpdateResult> resultAfterImage(const Update& update) const;
    std::optional<UpdateResult> resultAfterReport(Update& update);
    UpdateResult resultByReplies(Update& update);
    std::optional<UpdateResult> resultOfPatience(const Update& update) const;
    void end(const std::string& key, UpdateResult result);
    // Timer and notices.
    void startTicking();
    void tick();
    void notifyChange(const std::string& key);

    const UpdateServices _services;
    UpdateSettings _settings;
    UpdateObserver* _observer = nullptr;
    UpdateMonitor _monitor;

    // Two maps by key of the printer: observers read all of _updates, and _courses is private bookkeeping. Each update
    // has its course. A course is never removed, because its alerts may still be pending after the update was
    // dismissed; and a printer that is not updated has one for its alerts.
    std::map<std::string, Update> _updates;
    std::map<std::string, Course> _courses;

    // Incomplete updates from the history, the newest first.
    std::vector<UpdateRecord> _interrupted; // their processes ended before them
    std::vector<UpdateRecord> _failed;      // each printer's last update, if it failed

    std::uint64_t _timer = 0; // of the next tick; 0: none is set
    /// Queued blocks hold it weakly: it has expired if this object was destroyed before they run.
    std::shared_ptr<UpdateSupervisor*> _self;
};

} // namespace zul
