// One run with printers: the environment of the engine, the bus, the controller and the supervisor of updates. The
// command line and the window each own one session and add their outlets and main loop. Main queue.
#pragma once

#include "Classes/Environment.h"
#include "Classes/PrinterEvents.h"
#include "Classes/TBPrinters.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/FirmwareArchive.h"
#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/UserDefaults.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/PrinterReservations.h"
#include "platform/usb/ServiceRegistry.h"
#include "session/SessionOptions.h"
#include "session/SessionProblem.h"
#include "session/SleepInhibitor.h"
#include "session/UnusablePrinters.h"
#include "update/PrinterLocks.h"
#include "update/Update.h"
#include "update/UpdateRecorder.h"
#include "update/UpdateServices.h"
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

/// Implemented by the user interface of a session. Called on the main queue.
class SessionObserver : public UpdateObserver {
  public:
    /// A printer that cannot be used was attached; message explains why and what to do.
    virtual void unusablePrinterDidArrive(const std::string& message) = 0;
    /// unusablePrinters() may have changed: a printer was attached or detached, or opening it failed or succeeded
    /// again.
    virtual void unusablePrintersDidChange() {}
    /// supervisor.interruptedText() may have changed.
    virtual void interruptedDidChange() {}
};

class Session {
  public:
    using Printer = std::shared_ptr<TBUSBPrinterZUL>;

    /// alerts: shows alerts to the operator. clock: null for the machine's own; a given clock must outlive the session.
    Session(SessionOptions options, AlertOutlet& alerts, ApplicationOutlet& application, Clock* clock = nullptr);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Sets the observer; null for none. It must outlive the session or be reset.
    void setObserver(SessionObserver* observer);
    /// Creates the bus and the controller, and enumerates the attached printers. outlets: the user interface's; each
    /// may be null. Returns why the session cannot start, or nullopt.
    std::optional<SessionProblem> start(TBPrinters::Outlets outlets);
    /// Runs block once every printer attached at the start is in the list and the history of unfinished updates was
    /// read. A printer that is slow to return its device ID takes up to about 3 s.
    void whenEnumerated(Block block);
    /// Returns the printers to the kernel's driver, except those that must not be interrupted.
    void endBus();

    /// The attached printers, in the order of their rows; empty before start().
    std::vector<Printer> printers() const { return controller->printers(); }
    /// The objects of the attached printer with this key: one for each of its printer interfaces.
    std::vector<Printer> printersWithKey(const std::string& key) const;
    /// The first of them; null if the printer is not attached.
    Printer printerWithKey(const std::string& key) const;
    /// Runs block on the main queue after all work now queued for the printers.
    void afterQueues(const std::vector<Printer>& all, Block block);

    /// Reserves the printer, runs action, which changes it, and releases it after its queue has done the work. If
    /// another process has reserved the printer, returns that holder and does not run action.
    std::optional<InterfaceHolder> whileReserved(const Printer& printer, const std::string& activity,
                                                 const std::function<void()>& action);
    /// Claims the printer for this program, or releases it; a claimed printer is reserved. If another process has
    /// reserved the printer, returns that holder and changes nothing.
    std::optional<InterfaceHolder> setClaimed(const Printer& printer, bool isClaimed);

    /// Hints about attached printers that cannot be used: missing rights, or a model that is not admitted. Listed
    /// printers that could not be opened are included.
    std::vector<std::string> unusablePrinters() const;
    /// True if attached printers were found that cannot be opened.
    bool hasUnusable() const { return _unusable.isAny(); }
    /// True if the only firmware files are the samples, no archive was named, and the printers are real: samples must
    /// never be written to a real printer, not even to one found in its loader.
    bool areSamplesWithheld() const { return _areSamplesWithheld; }
    /// The embedded printers; null on the real bus.
    VirtualBus* virtualBus() const { return _virtualBus; }

  private:
    /// Passes events of printers that cannot be used to the hints, all others to the supervisor.
    class EventRouter final : public PrinterEventsOutlet {
      public:
        /// Part of the session, which outlives it.
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
    FirmwareArchive archive{bundle}; // the firmware files for all updates of the run
    PrinterLocks locks;              // locks of this machine's printers; embedded printers have separate locks
    UpdateRecorder recorder;         // of the user's history; embedded printers have a separate history
    SleepInhibitor sleepInhibitor;   // held during updates
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
    LibusbBus* _realBus = nullptr; // the same object if it is the real bus
    VirtualBus* _virtualBus = nullptr;
};

} // namespace zul
