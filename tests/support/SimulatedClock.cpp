// Advances time only when every queue is idle: drain() jumps to the next timer or wait, on the test's thread. Sleeping
// threads and events register here and are woken in the order of their deadlines.
#include "support/SimulatedClock.h"

#include <algorithm>
#include <optional>
#include <thread>

namespace zul {

class SimulatedClock::Event final : public ClockEvent {
  public:
    explicit Event(SimulatedClock& clock) : _clock(clock) {}
    bool waitUntil(TimePoint deadline) override { return _clock.wait(this, deadline); }
    void signal() override {
        const std::scoped_lock lock(_clock._mutex);
        if (waiter == nullptr || waiter->released) {
            pending = true;
            return;
        }
        waiter->signalled = true;
        waiter->released = true;
        ++_clock._work; // counted as running from now on, not from when its thread wakes up
        waiter->wake.notify_one();
    }
    Waiter* waiter = nullptr;
    bool pending = false;

  private:
    SimulatedClock& _clock;
};

SimulatedClock::SimulatedClock() : _now(TimePoint{} + std::chrono::hours(1000)) {}
SimulatedClock::~SimulatedClock() = default;

Clock::TimePoint SimulatedClock::now() {
    const std::scoped_lock lock(_mutex);
    return _now;
}

std::chrono::system_clock::time_point SimulatedClock::wallTime() {
    // A fixed morning, so that time stamps in tests are the same on every machine.
    return std::chrono::sys_days{std::chrono::year{2026} / 3 / 1} + std::chrono::hours(9) +
           std::chrono::duration_cast<std::chrono::system_clock::duration>(elapsed());
}

Clock::Duration SimulatedClock::elapsed() {
    return now() - (TimePoint{} + std::chrono::hours(1000));
}

bool SimulatedClock::wait(Event* event, TimePoint deadline) {
    std::unique_lock lock(_mutex);
    if (event != nullptr && event->pending) {
        event->pending = false;
        return true;
    }
    if (deadline <= _now) return false;
    if (std::this_thread::get_id() == _owner) {
        lock.unlock();
        return waitOnOwner(event, deadline);
    }
    Waiter waiter;
    waiter.deadline = deadline;
    _waiters.insert(&waiter);
    if (event != nullptr) event->waiter = &waiter;
    --_work;
    _quiet.notify_all();
    waiter.wake.wait(lock, [&] { return waiter.released; });
    if (event != nullptr) event->waiter = nullptr;
    _waiters.erase(&waiter);
    return waiter.signalled;
}

// The thread that advances the clock is itself waiting, so it advances the clock here, up to its own deadline.
bool SimulatedClock::waitOnOwner(Event* event, TimePoint deadline) {
    for (;;) {
        {
            const std::scoped_lock lock(_mutex);
            if (event != nullptr && event->pending) {
                event->pending = false;
                return true;
            }
            if (_now >= deadline) return false;
        }
        if (!stepTo(deadline)) {
            const std::scoped_lock lock(_mutex);
            if (event == nullptr || !event->pending) _now = std::max(_now, deadline);
        }
    }
}

void SimulatedClock::advance(MainQueue& mainQueue, Duration span) {
    const TimePoint end = now() + span;
    drain(mainQueue, span);
    const std::scoped_lock lock(_mutex);
    _now = std::max(_now, end);
}

void SimulatedClock::sleepFor(Duration duration) {
    wait(nullptr, now() + duration);
}

std::unique_ptr<ClockEvent> SimulatedClock::makeEvent() {
    return std::make_unique<Event>(*this);
}

Clock::TimerId SimulatedClock::callAt(TimePoint time, Block block) {
    const std::scoped_lock lock(_mutex);
    const TimerId id = _nextTimer++;
    _timers.emplace(time, std::pair{id, std::move(block)});
    return id;
}

void SimulatedClock::cancel(TimerId timer) {
    Block dropped;
    const std::scoped_lock lock(_mutex);
    for (auto entry = _timers.begin(); entry != _timers.end(); ++entry) {
        if (entry->second.first != timer) continue;
        dropped = std::move(entry->second.second);
        _timers.erase(entry);
        return;
    }
}

void SimulatedClock::workAdded() {
    const std::scoped_lock lock(_mutex);
    ++_work;
    _quiet.notify_all();
}

void SimulatedClock::workDone() {
    const std::scoped_lock lock(_mutex);
    --_work;
    _quiet.notify_all();
}

void SimulatedClock::settle(MainQueue& mainQueue) {
    for (;;) {
        mainQueue.runPending();
        std::unique_lock lock(_mutex);
        if (_work <= 0) return;
        // Work is running on another thread: wake up when it ends, waits for time, or posts to this queue. The short
        // limit only covers the moment between a post and its notification; no result depends on its length.
        _quiet.wait_for(lock, std::chrono::milliseconds(1));
    }
}

bool SimulatedClock::stepTo(TimePoint limit) {
    Block due;
    {
        const std::scoped_lock lock(_mutex);
        std::optional<TimePoint> next;
        Waiter* nextWaiter = nullptr;
        if (!_timers.empty()) next = _timers.begin()->first;
        for (Waiter* waiter : _waiters) {
            if (waiter->released || (next && waiter->deadline >= *next)) continue;
            next = waiter->deadline;
            nextWaiter = waiter;
        }
        if (!next || *next > limit) {
            if (limit > _now && next) _now = limit;
            return false;
        }
        if (*next > _now) _now = *next;
        if (nextWaiter != nullptr) {
            nextWaiter->released = true;
            ++_work;
            nextWaiter->wake.notify_one();
            return true;
        }
        due = std::move(_timers.begin()->second.second);
        _timers.erase(_timers.begin());
    }
    due();
    return true;
}

bool SimulatedClock::drain(MainQueue& mainQueue, Duration limit) {
    const TimePoint end = now() + limit;
    do {
        settle(mainQueue);
    } while (!mainQueue.hasQuit() && stepTo(end));
    settle(mainQueue);
    const std::scoped_lock lock(_mutex);
    return _timers.empty() && _waiters.empty();
}

} // namespace zul
