// One run of the window: its outlets, its session, its main window. GUI thread.
#pragma once

#include "ui/AlertPresenter.h"
#include "ui/LoopBinding.h"
#include "ui/MainWindow.h"
#include "ui/WindowApplication.h"

#include <functional>
#include <memory>

namespace zul::ui {

class WindowProgram {
  public:
    /// end leaves the event loop. clock: the machine's own when null.
    WindowProgram(SessionOptions options, std::function<void()> end, Clock* clock = nullptr);
    ~WindowProgram();

    /// Finds the printers and shows the window; the problem that prevents it, or nothing.
    std::optional<SessionProblem> start();

    AlertPresenter& alerts() { return _alerts; }
    Session& session() { return *_session; }
    MainWindow& window() { return *_window; }

  private:
    AlertPresenter _alerts;
    WindowApplication _application;
    std::unique_ptr<Session> _session;
    std::unique_ptr<LoopBinding> _loop;
    std::unique_ptr<MainWindow> _window;
};

} // namespace zul::ui
