// Runs the main queue from the toolkit's event loop. GUI thread; WindowProgram owns it.
#pragma once

#include "platform/dispatch/Queue.h"

#include <QSocketNotifier>

namespace zul::ui {

class LoopBinding {
  public:
    /// From now until the destructor the queue's blocks run from the loop, and from the nested loops of dialogs.
    explicit LoopBinding(MainQueue& mainQueue) : _notifier(mainQueue.eventDescriptor(), QSocketNotifier::Read) {
        QObject::connect(&_notifier, &QSocketNotifier::activated, [&mainQueue] { mainQueue.runPending(); });
    }

  private:
    QSocketNotifier _notifier;
};

} // namespace zul::ui
