// Connects session, main window and event loop, and ends them in the right order.
// GUI thread; called by main.
#include "ui/WindowProgram.h"

#include "platform/dispatch/Clock.h"
#include "session/Session.h"
#include "session/SessionOptions.h"
#include "session/SessionProblem.h"
#include "ui/LoopBinding.h"

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace zul::ui {

WindowProgram::WindowProgram(SessionOptions options, std::function<void()> end, Clock* clock)
    : _application([this, end = std::move(end)] {
          if (_window) _window->rememberLayout(); // here, because an alert may end the program, too
          end();
      }),
      _session(std::make_unique<Session>(std::move(options), _alerts, _application, clock)),
      _loop(std::make_unique<LoopBinding>(_session->mainQueue)),
      _window(std::make_unique<MainWindow>(*_session, _alerts, _application)) {}

// Alerts hold printers, which use the session.
WindowProgram::~WindowProgram() {
    _alerts.dismissAll();
}

std::optional<SessionProblem> WindowProgram::start() {
    if (auto problem = _session->start(_window->outlets())) return problem;
    // After the session's start, which records the version that the window shows.
    _window->begin();
    _application.setQuitAsked([this] { _window->quitAsked(); });
    return std::nullopt;
}

} // namespace zul::ui
