// One run of zulctl with printers: the environment that the engine lives in, its start, and the ways to wait for it.
// Main queue.
#pragma once

#include "Classes/Environment.h"
#include "Classes/TBPrinters.h"
#include "Classes/UpdateMonitor.h"
#include "cli/Options.h"
#include "cli/Output.h"
#include "platform/dispatch/Queue.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/UserDefaults.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zul {
class LibusbBus;
}

namespace zul::cli {

class Program;

/// How a printer is called in messages: model, serial number where one is known, location.
std::string nameOf(const TBUSBPrinterZUL& printer);

/// Terminates nothing but this run: "Quit" in an alert ends the update that asked.
class ApplicationEnd final : public ApplicationOutlet {
  public:
    void setDelegate(TBPrinters*) override {}
    void terminate() override {}
    std::string processName() const override { return "zulctl"; }
};

/// What alerts lead to; none is shown outside updates and settings.
class AlertRouter final : public AlertOutlet {
  public:
    std::function<void(AlertDescription)> handler;
    void beginAlert(AlertDescription alert) override {
        if (handler) handler(std::move(alert));
    }
};

/// Passes events on and remembers printers that could not be used.
class EventRouter final : public PrinterEventsOutlet {
  public:
    explicit EventRouter(Program& program) : _program(program) {}
    void printerEvent(const PrinterEvent& event) override;

  private:
    Program& _program;
};

class Program {
  public:
    using Printer = std::shared_ptr<TBUSBPrinterZUL>;

    explicit Program(Options options);
    ~Program();
    /// Gives the printers back to the system's own driver; what is in the middle of something is left alone.
    void endBus();

    /// The bus, the controller, and the first round of questions to every attached printer; then ready runs. An exit
    /// status other than 0 when the bus could not be started.
    int start(std::function<void()> ready);
    /// Runs until quit; the exit status.
    int run() { return mainQueue.run(); }
    void quit(int status) { mainQueue.quit(status); }

    std::vector<Printer> printers() const { return controller->printers(); }
    /// By key, serial number, location or position from 1. Null after telling the problem: there is none (exitStatus
    /// 4), or the name stands for several (2).
    Printer find(const std::string& name, int& exitStatus);
    /// The one that is named, or the only one that is attached; null after telling the problem.
    Printer findOnly(const std::vector<std::string>& names, int& exitStatus);
    /// Runs block on main once everything that is queued for the printers now is done.
    void afterQueues(const std::vector<Printer>& all, Block block);
    enum class Interrupt { byUser, bySystem }; // Ctrl-C; SIGTERM or a terminal that was closed
    /// Runs handler on main at each interrupt.
    void onInterrupt(std::function<void(Interrupt)> handler);
    void tellNoPrinter(int exitStatus);
    /// Hints about printers that are attached and cannot be used: no rights, not admitted.
    void noteUnusable() const;
    bool hasUnusable() const { return !_unusable.empty(); }
    /// A printer that cannot be used has come. Kept for noteUnusable, unless somebody wants to be told at once.
    void addUnusable(const std::string& message);
    std::function<void(const std::string& message)> unusableFound;
    /// The printer was told to restart: until it has left, the system's own driver stays away from it.
    void expectRestart(const std::string& key);

    const Options options;
    const Output output;
    RealClock clock;
    MainQueue mainQueue{clock};
    ServiceRegistry registry;
    UserDefaults defaults;
    Bundle bundle;
    AlertRouter alerts;
    ApplicationEnd application;
    std::function<void(const std::string& key)> updateChanged; // main queue
    UpdateMonitor monitor;
    EventRouter events{*this};
    Environment environment;
    std::shared_ptr<TBPrinters> controller;

  private:
    std::string listed() const;
    std::vector<std::string> notAdmitted() const;
    std::vector<std::string> _unusable;
    int makeVirtualBus();
    std::unique_ptr<USBBus> _bus;
    LibusbBus* _realBus = nullptr; // the same, when it is the real one
};

} // namespace zul::cli
