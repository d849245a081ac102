// One run of zulctl with printers: the environment that the engine lives in, its start, and the ways to wait for it.
// Main queue.
#pragma once

#include "cli/Options.h"
#include "cli/Output.h"
#include "session/Session.h"

#include <functional>
#include <string>
#include <vector>

namespace zul::cli {

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

/// What the run's session is given; made before it.
struct ProgramOutlets {
    AlertRouter alerts;
    ApplicationEnd application;
};

class Program : public ProgramOutlets, public Session {
  public:
    explicit Program(Options options);

    /// The bus, the controller, and the first round of questions to every attached printer; then ready runs. An exit
    /// status other than 0 when the bus could not be started.
    int start(std::function<void()> ready);
    /// Runs until quit; the exit status.
    int run() { return mainQueue.run(); }
    void quit(int status) { mainQueue.quit(status); }

    /// By key, serial number, location or position from 1. Null after telling the problem: there is none (exitStatus
    /// 4), or the name stands for several (2).
    Printer find(const std::string& name, int& exitStatus);
    /// The one that is named, or the only one that is attached; null after telling the problem.
    Printer findOnly(const std::vector<std::string>& names, int& exitStatus);
    enum class Interrupt { byUser, bySystem }; // Ctrl-C; SIGTERM or a terminal that was closed
    /// Runs handler on main at each interrupt from now on, in place of the one before. Main queue.
    void onInterrupt(std::function<void(Interrupt)> handler);
    void tellNoPrinter(int exitStatus);
    /// Tells about printers that are attached and cannot be used.
    void noteUnusable() const;

    const Options options;
    const Output output;

  private:
    std::string listed() const;
    std::function<void(Interrupt)> _interrupted; // main queue
};

} // namespace zul::cli
