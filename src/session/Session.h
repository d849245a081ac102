// One run with printers: the environment that the engine lives in, the bus, the controller, and who watches updates.
// The command line and the window each add their outlets and their loop. Main queue.
#pragma once

#include "Classes/Environment.h"
#include "Classes/TBPrinters.h"
#include "Classes/UpdateMonitor.h"
#include "archive/FirmwareArchive.h"
#include "platform/dispatch/Queue.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/UserDefaults.h"
#include "session/SessionOptions.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zul {

class LibusbBus;
class Session;
class VirtualBus;

/// Passes events on and remembers printers that could not be used.
class EventRouter final : public PrinterEventsOutlet {
  public:
    explicit EventRouter(Session& session) : _session(session) {}
    void printerEvent(const PrinterEvent& event) override;

  private:
    Session& _session;
};

/// Why a run cannot start, and what to do.
struct SessionProblem {
    std::string message;
    bool isWrongUsage = false;
};

class Session {
  public:
    using Printer = std::shared_ptr<TBUSBPrinterZUL>;

    /// clock: the machine's own when null; a given one must outlive the session.
    Session(SessionOptions options, AlertOutlet& alerts, ApplicationOutlet& application, Clock* clock = nullptr);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Makes the bus and the controller, and finds what is attached. outlets: what the user interface connects; all
    /// may be null. Nothing when all is well.
    std::optional<SessionProblem> startSession(TBPrinters::Outlets outlets);
    /// Gives the printers back to the system's own driver; what is in the middle of something is left alone.
    void endBus();

    std::vector<Printer> printers() const { return controller->printers(); }
    /// The attached printer with this key; null when there is none.
    Printer printerWithKey(const std::string& key) const;
    /// Runs block on main once everything that is queued for the printers now is done.
    void afterQueues(const std::vector<Printer>& all, Block block);

    /// Hints about printers that are attached now and cannot be used: no rights, not admitted.
    std::vector<std::string> unusablePrinters() const;
    /// Some were found that may not or cannot be opened.
    bool hasUnusable() const { return !_unusable.empty(); }
    /// A printer that cannot be used has come (an event of kind notPermitted or openFailed). Kept for unusablePrinters,
    /// unless somebody wants to be told at once.
    void addUnusable(const PrinterEvent& event);
    std::function<void(const std::string& message)> unusableFound;
    /// A printer has come or gone, and unusablePrinters may tell something else now. Main queue.
    std::function<void()> unusableChanged;
    /// The printer was told to restart: until it has left, the system's own driver stays away from it.
    void expectRestart(const std::string& key);
    /// The only firmware files are the samples, nobody named them, and the printers are real ones: no way leads from
    /// one to the other, not even that of a printer which is found in its loader.
    bool areSamplesWithheld() const { return _areSamplesWithheld; }
    /// The embedded printers; null on the real bus.
    VirtualBus* virtualBus() const { return _virtualBus; }

  private:
    RealClock _machineClock;

  public:
    Clock& clock;
    MainQueue mainQueue{clock};
    ServiceRegistry registry;
    UserDefaults defaults;
    Bundle bundle;
    FirmwareArchive archive{bundle}; // the files that all printers of the run are updated from
    std::function<void(const std::string& key)> updateChanged; // main queue
    /// An update that nobody had begun to follow is under way; the monitor follows it from now on. Main queue. Set it
    /// before the session starts; without it such updates are not followed.
    std::function<void(const std::string& key)> updateFound;
    UpdateMonitor monitor;
    EventRouter events{*this};
    Environment environment;
    std::shared_ptr<TBPrinters> controller;

  private:
    struct Unusable {
        std::string location;
        std::string node;
        std::string message;
    };
    bool isAttached(const Unusable& one) const;
    std::vector<std::string> notAdmitted() const;
    void watchServices();
    std::optional<SessionProblem> makeVirtualBus();

    const SessionOptions _options;
    bool _areSamplesWithheld = false;
    std::vector<Unusable> _unusable;
    std::unique_ptr<USBBus> _bus;
    LibusbBus* _realBus = nullptr; // the same, when it is the real one
    VirtualBus* _virtualBus = nullptr;
};

/// Opens the program's logs as the options say; what is wrong, or nothing.
std::optional<SessionProblem> openLogs(const SessionOptions& options, const std::string& programName);

} // namespace zul
