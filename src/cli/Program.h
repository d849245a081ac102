// One run of zulctl with printers: its session, its start, and the ways to find a printer in it. Main queue.
#pragma once

#include "cli/Options.h"
#include "cli/Output.h"
#include "platform/dispatch/Signals.h"
#include "session/AttachedPrinters.h"
#include "session/Session.h"

#include <functional>
#include <string>
#include <vector>

namespace zul::cli {

/// Ends nothing but this run: "Quit" in an alert ends the update that asked.
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

class Program {
  public:
    using Printer = Session::Printer;

    explicit Program(Options options);

    /// The bus, the controller, and the first round of questions to every attached printer; then ready runs. An exit
    /// status other than 0 if the session cannot start.
    int start(std::function<void()> ready);
    /// Runs until quit; the exit status.
    int run() { return session.mainQueue.run(); }
    void quit(int status) { session.mainQueue.quit(status); }

    /// By key, serial number, location or position from 1. Null after reporting the problem: there is none (exitStatus
    /// 4), or the name stands for several (2).
    Printer find(const std::string& name, int& exitStatus);
    /// The one that is named, or the only one that is attached; null after reporting the problem.
    Printer findOnly(const std::vector<std::string>& names, int& exitStatus);
    enum class Interrupt {
        byUser,        // Ctrl-C
        bySystem,      // SIGTERM
        terminalClosed // SIGHUP
    };
    /// Runs handler on main at each interrupt from now on, in place of the one before. Main queue.
    void onInterrupt(std::function<void(Interrupt)> handler) { _interrupted = std::move(handler); }
    /// Reports that no printer is attached, or why those that are cannot be used.
    void reportNoPrinter(int exitStatus);
    /// Reports the printers that are attached and cannot be used.
    void noteUnusable() const;

    const Options options;
    /// doctor: the real printers as they were found, before the session opened any.
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
