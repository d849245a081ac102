// One run with printers: the environment that the engine lives in, the bus, the controller and the supervisor of
// updates. The command line and the window each own one and add their outlets and their loop. Main queue.
#pragma once

#include "Classes/Environment.h"
#include "Classes/TBPrinters.h"
#include "archive/FirmwareArchive.h"
#include "platform/dispatch/Queue.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/UserDefaults.h"
#include "session/SessionOptions.h"
#include "session/SessionProblem.h"
#include "session/SleepInhibitor.h"
#include "session/UnusablePrinters.h"
#include "update/PrinterLocks.h"
#include "update/UpdateRecorder.h"
#include "update/UpdateSupervisor.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zul {

class LibusbBus;
class VirtualBus;

/// Who shows a session. Called on the main queue.
class SessionObserver : public UpdateObserver {
  public:
    /// A printer that cannot be used has come; message explains why and what to do.
    virtual void unusablePrinterDidArrive(const std::string& message) = 0;
    /// A printer has come or gone, or its open was refused or not refused any more: unusablePrinters() may be
    /// different.
    virtual void unusablePrintersDidChange() {}
    /// supervisor.interruptedText() may have changed.
    virtual void interruptedDidChange() {}
};

class Session {
  public:
    using Printer = std::shared_ptr<TBUSBPrinterZUL>;

    /// alerts: shows the alerts to the operator. clock: the machine's own if null; a given one must outlive the
    /// session.
    Session(SessionOptions options, AlertOutlet& alerts, ApplicationOutlet& application, Clock* clock = nullptr);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Null: nobody. The observer must outlive the session or be taken back.
    void setObserver(SessionObserver* observer);
    /// Makes the bus and the controller, and finds what is attached. outlets: what the user interface connects; all
    /// may be null. Returns why the session cannot start, or nullopt.
    std::optional<SessionProblem> start(TBPrinters::Outlets outlets);
    /// Runs block once everything that was attached at the start is in the list, and it is known which updates earlier
    /// runs did not end. A printer that is slow to answer the request for its device ID takes up to some 3 s.
    void whenEnumerated(Block block);
    /// Returns the printers to the system's own driver, except those in the middle of something.
    void endBus();

    std::vector<Printer> printers() const { return controller->printers(); }
    /// The attached printer with this key; null if there is none.
    Printer printerWithKey(const std::string& key) const;
    /// Runs block on main once everything that is queued for the printers now is done.
    void afterQueues(const std::vector<Printer>& all, Block block);

    /// Runs action, which changes the printer, and reserves the printer until its queue has done it. Returns who has
    /// reserved it, if that is another process: then action is not run.
    std::optional<InterfaceHolder> whileReserved(const Printer& printer, const std::string& activity,
                                                 const std::function<void()>& action);
    /// Claims the printer for this program, or releases it; a claimed printer is reserved. Returns who has reserved it,
    /// if that is another process: then nothing is done.
    std::optional<InterfaceHolder> setClaimed(const Printer& printer, bool isClaimed);

    /// Hints about printers that are attached now and cannot be used: no rights, not admitted. Those that are in the
    /// list and may not be opened are among them.
    std::vector<std::string> unusablePrinters() const;
    /// Some were found that may not or cannot be opened.
    bool hasUnusable() const { return _unusable.isAny(); }
    /// The only firmware files are the samples, nobody named them, and the printers are real ones: there is no way from
    /// one to the other, not even for a printer that is found in its loader.
    bool areSamplesWithheld() const { return _areSamplesWithheld; }
    /// The embedded printers; null on the real bus.
    VirtualBus* virtualBus() const { return _virtualBus; }

  private:
    /// Passes events on: those of printers that cannot be used to the hints, all others to the supervisor.
    class EventRouter final : public PrinterEventsOutlet {
      public:
        explicit EventRouter(Session& session) : _session(session) {}
        void printerEvent(const PrinterEvent& event) override;

      private:
        Session& _session;
    };

    RealClock _machineClock;

  public:
    Clock& clock;
    MainQueue mainQueue{clock};
    ServiceRegistry registry;
    UserDefaults defaults;
    Bundle bundle;
    FirmwareArchive archive{bundle}; // the files that all printers of the run are updated from
    PrinterLocks locks;              // of this machine's printers; embedded ones have locks of their own
    UpdateRecorder recorder;         // of the user's history; embedded printers have one of their own
    SleepInhibitor sleepInhibitor;   // held while an update is under way
    UpdateSupervisor supervisor;

  private:
    EventRouter _events{*this};

  public:
    Environment environment;
    std::shared_ptr<TBPrinters> controller;

  private:
    PrinterLocksOptions lockOptions(const std::string& program, bool areEmbedded) const;
    UpdateServices servicesFor(AlertOutlet& alerts);
    std::optional<SessionProblem> makeBus();
    void watchServices();
    void historyIsRead();
    void forgetClaims();
    std::optional<PrinterLock> takeClaim(const std::string& key);
    void returnClaim(const std::string& key, PrinterLock lock);
    void unusableDidArrive(const PrinterEvent& event);
    void openDidEnd(IOReturn code);

    const SessionOptions _options;
    bool _areSamplesWithheld = false;
    SessionObserver* _observer = nullptr;
    bool _isHistoryRead = false;
    std::vector<Block> _waitsForHistory;
    std::map<std::string, PrinterLock> _claims; // by key
    UnusablePrinters _unusable;
    std::atomic<bool> _wasRightMissing = false;
    std::unique_ptr<USBBus> _bus;
    LibusbBus* _realBus = nullptr; // the same, if it is the real one
    VirtualBus* _virtualBus = nullptr;
};

} // namespace zul
