// One run of zulctl that uses printers: its session, its start, and the look-up of printers by name. Main queue.
#pragma once

#include "Classes/Outlets.h"
#include "Classes/TBPrinters.h"
#include "cli/Options.h"
#include "cli/Output.h"
#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Signals.h"
#include "session/AttachedPrinters.h"
#include "session/Session.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace zul::cli {

/// "Quit" in an alert ends only the update that showed it, never the process: terminate() does nothing.
class ApplicationEnd final : public ApplicationOutlet {
  public:
    /// No delegate: a command line ends by itself.
    void setDelegate(TBPrinters*) override {}
    void terminate() override {}
    std::string processName() const override { return "zulctl"; }
};

/// Passes alerts to the handler of the running command; without a handler they are dropped.
class AlertRouter final : public AlertOutlet {
  public:
    std::function<void(AlertDescription)> handler;
    void beginAlert(AlertDescription alert) override {
        if (handler) handler(std::move(alert));
    }
};

class Program {
  public:
    using Printer = Session::Printer;

    /// Builds the session and catches the signals; starts nothing.
    explicit Program(Options options);

    /// Starts the bus and the controller, waits for the first queries of every attached printer, then runs ready.
    /// Returns an exit status other than 0 if the session cannot start.
    int start(std::function<void()> ready);
    /// Runs the main queue until quit(); returns the exit status.
    int run() { return session.mainQueue.run(); }
    /// Ends run() with this status; the first call decides. Any thread.
    void quit(int status) { session.mainQueue.quit(status); }

    /// Finds a printer by key, serial number, location or position from 1. Null after reporting the problem: no such
    /// printer (exitStatus 4), or the name is ambiguous (2).
    Printer find(const std::string& name, int& exitStatus);
    /// The named printer, or the only attached one; null after reporting the problem.
    Printer findOnly(const std::vector<std::string>& names, int& exitStatus);
    enum class Interrupt {
        byUser,        // Ctrl-C
        bySystem,      // SIGTERM
        terminalClosed // SIGHUP
    };
    /// Replaces the handler of interrupts. The handler runs on the main queue. Call on the main queue.
    void onInterrupt(std::function<void(Interrupt)> handler) { _interrupted = std::move(handler); }
    /// Reports that no printer is attached, or why those that are cannot be used.
    void reportNoPrinter(int exitStatus);
    /// Reports the attached printers that cannot be used.
    void noteUnusable() const;

    const Options options;
    /// For doctor: the real printers as found before the session opened any.
    std::vector<AttachedPrinter> attachedAtStart;
    const Output output;
    AlertRouter alerts;
    ApplicationEnd application;
    Session session;

  private:
    std::string listed() const;
    Clock::Duration briefUse() const;
    bool isAnyBrieflyUsed() const;
    void whenNotBrieflyUsed(Clock::TimePoint deadline, Block ready);
    std::function<void(Interrupt)> _interrupted; // main queue
    Signals _signals;
};

} // namespace zul::cli
