// A clock that a test advances. Threads are real, time is not: when every queue is idle or waits for time, the clock
// jumps to the next awaited moment. So a scenario of minutes runs in milliseconds, its moments are always in the same
// order, and a wait that never ends is reported as idle instead of blocking the test.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace zul {

class SimulatedClock final : public Clock {
  public:
    SimulatedClock();
    ~SimulatedClock() override;

    TimePoint now() override;
    std::chrono::system_clock::time_point wallTime() override;
    void sleepFor(Duration duration) override;
    std::unique_ptr<ClockEvent> makeEvent() override;
    TimerId callAt(TimePoint time, Block block) override;
    void cancel(TimerId timer) override;
    void workAdded() override;
    void workDone() override;

    /// Runs the main queue, and lets all queues run until no work is left at the current time. Main thread.
    void settle(MainQueue& mainQueue);
    /// settle(), then advances from one awaited moment to the next, settling each time, until the given span has passed
    /// or no wait or timer is left. Returns true if everything is idle and no wait or timer is left. Main thread.
    bool drain(MainQueue& mainQueue, Duration limit = std::chrono::hours(1));
    /// drain() for exactly the span: afterwards the clock is at its end. Main thread.
    void advance(MainQueue& mainQueue, Duration span);
    /// Time since the clock was created.
    Duration elapsed();

  private:
    class Event;
    struct Waiter {
        TimePoint deadline;
        bool signalled = false;
        bool released = false;
        std::condition_variable wake;
    };
    bool wait(Event* event, TimePoint deadline);
    bool waitOnOwner(Event* event, TimePoint deadline);
    bool stepTo(TimePoint limit);

    const std::thread::id _owner = std::this_thread::get_id();
    std::mutex _mutex;
    std::condition_variable _quiet;
    TimePoint _now;
    int _work = 0; // blocks waiting or running in any queue, minus the threads that wait for time
    std::set<Waiter*> _waiters;
    std::multimap<TimePoint, std::pair<TimerId, Block>> _timers;
    TimerId _nextTimer = 1;
};

} // namespace zul
