// The clock that all code of this project uses. It is injected, so that tests advance it by hand and never sleep.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace zul {

/// Work for a queue or a timer.
using Block = std::function<void()>;

/// One thread waits for the event, others signal it. A signal before the wait is not lost; several signals before a
/// wait act as one.
class ClockEvent {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;
    virtual ~ClockEvent() = default;
    /// Returns true when signalled, false when the deadline has passed. Any thread, one waiter at a time.
    virtual bool waitUntil(TimePoint deadline) = 0;
    /// Ends the current wait, or the next one. Any thread.
    virtual void signal() = 0;
};

/// All operations may be called on any thread unless stated otherwise.
class Clock {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;
    using TimerId = std::uint64_t;

    virtual ~Clock() = default;
    /// Monotonic time.
    virtual TimePoint now() = 0;
    /// Calendar time for time stamps.
    virtual std::chrono::system_clock::time_point wallTime() = 0;
    /// Blocks the calling thread. Never on the main queue.
    virtual void sleepFor(Duration duration) = 0;
    /// Creates an event whose waits use this clock.
    virtual std::unique_ptr<ClockEvent> makeEvent() = 0;
    /// Runs block once at time on a thread of the clock; block may only post or signal. Returns an id that is never 0.
    virtual TimerId callAt(TimePoint time, Block block) = 0;
    /// Cancels a timer. Cancelling a timer that is running or has run is not an error; the call does not wait for its
    /// block.
    virtual void cancel(TimerId timer) = 0;

    /// Queues report when they become busy and when they become idle (the main queue: for each block), so that a
    /// simulated clock knows when no block is running. The real clock ignores both calls.
    virtual void workAdded() {}
    virtual void workDone() {}
};

/// The machine's clock. Timers run on one thread, which is started when first needed and never joined.
class RealClock final : public Clock {
  public:
    /// Starts no thread; the first timer does.
    RealClock();
    /// Drops the timers that have not run. A block that is running is not waited for.
    ~RealClock() override;
    TimePoint now() override;
    std::chrono::system_clock::time_point wallTime() override;
    void sleepFor(Duration duration) override;
    std::unique_ptr<ClockEvent> makeEvent() override;
    TimerId callAt(TimePoint time, Block block) override;
    void cancel(TimerId timer) override;

  private:
    struct Timers;
    std::shared_ptr<Timers> _timers;
};

} // namespace zul
