// The system's requests to end (Ctrl-C in the terminal, a session that closes): the program ends as if its window had
// been closed, so that printers are given back to the system's own driver. GUI thread; one at a time.
#pragma once

#include <QSocketNotifier>
#include <functional>
#include <memory>

namespace zul::ui {

class EndSignals {
  public:
    explicit EndSignals(std::function<void()> asked);
    ~EndSignals();
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

  private:
    std::unique_ptr<QSocketNotifier> _notifier;
};

} // namespace zul::ui
