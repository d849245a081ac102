// Hangs the main queue on the window system's event loop. GUI thread.
#pragma once

#include "platform/dispatch/Queue.h"

#include <QSocketNotifier>

namespace zul::ui {

class LoopBinding {
  public:
    /// The queue's blocks run from the loop, also from the nested loops of dialogs, while this lives.
    explicit LoopBinding(MainQueue& mainQueue) : _notifier(mainQueue.eventDescriptor(), QSocketNotifier::Read) {
        QObject::connect(&_notifier, &QSocketNotifier::activated, [&mainQueue] { mainQueue.runPending(); });
    }

  private:
    QSocketNotifier _notifier;
};

} // namespace zul::ui
