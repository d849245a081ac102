// Time, as everything in this program sees it: injected, so that tests move it by hand and nothing in them sleeps.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace zul {

using Block = std::function<void()>;

/// Something that one thread waits for and others signal. A signal that comes before the wait is not lost; several
/// signals before a wait count as one.
class ClockEvent {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;
    virtual ~ClockEvent() = default;
    /// True when signalled, false when the deadline came first. Any thread, one waiter at a time.
    virtual bool waitUntil(TimePoint deadline) = 0;
    virtual void signal() = 0;
};

class Clock {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;
    using TimerId = std::uint64_t;

    virtual ~Clock() = default;
    virtual TimePoint now() = 0;
    /// For time stamps shown to people.
    virtual std::chrono::system_clock::time_point wallTime() = 0;
    /// Blocks the calling thread. Never on the main queue.
    virtual void sleepFor(Duration duration) = 0;
    virtual std::unique_ptr<ClockEvent> makeEvent() = 0;
    /// Runs block once at the given time on a thread of the clock's own; the block may only post or signal. Never 0.
    virtual TimerId callAt(TimePoint time, Block block) = 0;
    /// A timer that already runs, or ran, is not an error.
    virtual void cancel(TimerId timer) = 0;

    /// Queues tell the clock when they become busy and when they are at rest again (the main queue: of each block), so
    /// that a clock moved by hand knows when nothing runs. The real clock does not care.
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
