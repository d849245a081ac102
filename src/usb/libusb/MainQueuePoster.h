// Posts blocks from the bus's private threads to the main queue until it is closed; after that no block of the bus runs
// there, whatever is still under way.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"

#include <memory>
#include <mutex>

namespace zul {

/// Any thread. The queue must outlive the port or its close(); the clock every handle of the bus.
class MainQueuePoster {
  public:
    /// Open at first.
    MainQueuePoster(MainQueue& mainQueue, Clock& clock) : _mainQueue(mainQueue), _clock(clock) {}

    /// Runs block later on the main queue, unless the port is closed by then. False when it is closed already.
    bool post(Block block);
    /// Main queue. Afterwards no posted block runs.
    void close();
    /// Any thread.
    bool isClosed() const;
    /// Usable also after close().
    Clock& clock() const { return _clock; }

  private:
    MainQueue& _mainQueue;
    Clock& _clock;
    mutable std::mutex _mutex;
    std::shared_ptr<bool> _open = std::make_shared<bool>(true); // read by posted blocks on main; written there
};

} // namespace zul
