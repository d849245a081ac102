// A clock that runs faster than the machine's by a factor: with 10, ten seconds take one. For tests with a real event
// loop, where no test code can advance a simulated clock.
#pragma once

#include "platform/dispatch/Clock.h"

#include <utility>

namespace zul {

class QuickClock final : public Clock {
  public:
    explicit QuickClock(int factor) : _factor(factor) {}

    TimePoint now() override { return quick(_machine.now()); }
    std::chrono::system_clock::time_point wallTime() override { return _machine.wallTime(); }
    void sleepFor(Duration duration) override { _machine.sleepFor(duration / _factor); }
    std::unique_ptr<ClockEvent> makeEvent() override { return std::make_unique<Event>(*this, _machine.makeEvent()); }
    TimerId callAt(TimePoint time, Block block) override { return _machine.callAt(real(time), std::move(block)); }
    void cancel(TimerId timer) override { _machine.cancel(timer); }

  private:
    struct Event final : ClockEvent {
        Event(QuickClock& quickClock, std::unique_ptr<ClockEvent> machineEvent)
            : clock(quickClock), event(std::move(machineEvent)) {}
        bool waitUntil(TimePoint deadline) override { return event->waitUntil(clock.real(deadline)); }
        void signal() override { event->signal(); }
        QuickClock& clock;
        const std::unique_ptr<ClockEvent> event;
    };
    TimePoint quick(TimePoint real) const { return _begin + (real - _begin) * _factor; }
    TimePoint real(TimePoint quick) const {
        return quick == TimePoint::max() ? quick : _begin + (quick - _begin) / _factor;
    }

    const int _factor;
    RealClock _machine;
    const TimePoint _begin = _machine.now();
};

} // namespace zul
