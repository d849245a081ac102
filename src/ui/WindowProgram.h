// One run of the window program: the alerts, the session, the binding of the main queue to the loop, and the main
// window. GUI thread, which is the main queue's; main owns it.
#pragma once

#include "platform/dispatch/Clock.h"
#include "session/Session.h"
#include "session/SessionOptions.h"
#include "session/SessionProblem.h"
#include "ui/AlertPresenter.h"
#include "ui/LoopBinding.h"
#include "ui/MainWindow.h"
#include "ui/WindowApplication.h"

#include <functional>
#include <memory>
#include <optional>

namespace zul::ui {

class WindowProgram {
  public:
    /// end: leaves the event loop. clock: the machine's own if null; a given one must outlive the program.
    WindowProgram(SessionOptions options, std::function<void()> end, Clock* clock = nullptr);
    /// For tests: a program's process ends without it.
    ~WindowProgram();

    /// Finds the printers and shows the window. Returns the problem that prevents it, or nullopt.
    std::optional<SessionProblem> start();

    /// The presenter of all alerts of this run.
    AlertPresenter& alerts() { return _alerts; }
    /// The session of this run.
    Session& session() { return *_session; }
    /// The main window, also before start.
    MainWindow& window() { return *_window; }

  private:
    AlertPresenter _alerts;
    WindowApplication _application;
    std::unique_ptr<Session> _session;
    std::unique_ptr<LoopBinding> _loop;
    std::unique_ptr<MainWindow> _window;
};

} // namespace zul::ui
