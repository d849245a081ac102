// Time as every part of this program uses it: injected, so that tests move it by hand and never sleep.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace zul {

using Block = std::function<void()>;

/// Something that one thread waits for and others signal. A signal that comes before the wait is not lost; several
/// signals before a wait are one.
class ClockEvent {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;
    virtual ~ClockEvent() = default;
    /// True when signalled, false when the deadline came first. Any thread, one waiter at a time.
    virtual bool waitUntil(TimePoint deadline) = 0;
    /// Ends the wait under way, or the next one. Any thread.
    virtual void signal() = 0;
};

/// Every operation may be called on any thread unless it says otherwise.
class Clock {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;
    using TimerId = std::uint64_t;

    virtual ~Clock() = default;
    /// Never goes back. Any thread.
    virtual TimePoint now() = 0;
    /// For time stamps shown to people.
    virtual std::chrono::system_clock::time_point wallTime() = 0;
    /// Blocks the calling thread. Never on the main queue.
    virtual void sleepFor(Duration duration) = 0;
    /// An event whose waits use this clock. Any thread.
    virtual std::unique_ptr<ClockEvent> makeEvent() = 0;
    /// Runs block once at the given time on a thread of the clock's own; the block may only post or signal. Never 0.
    virtual TimerId callAt(TimePoint time, Block block) = 0;
    /// A timer that already runs, or ran, is not an error; its block is not waited for.
    virtual void cancel(TimerId timer) = 0;

    /// Queues report when they become busy and when they are at rest again (the main queue: each block), so that a
    /// clock moved by hand knows when no block runs. The real clock ignores it.
    virtual void workAdded() {}
    virtual void workDone() {}
};

/// The machine's own clock. Timers run on one thread, made when first needed and never joined.
class RealClock final : public Clock {
  public:
    RealClock();
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
