// The real clock: condition variables, and one thread for all timers.
// Used by queues, printers and programs on any thread.
#include "platform/dispatch/Clock.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace zul {

namespace {

class RealEvent final : public ClockEvent {
  public:
    bool waitUntil(TimePoint deadline) override {
        std::unique_lock lock(_mutex);
        const bool signalled = _condition.wait_until(lock, deadline, [this] { return _signalled; });
        _signalled = false;
        return signalled;
    }
    void signal() override {
        // Notifies under the lock: the waiter may destroy the event as soon as it has seen the signal.
        const std::scoped_lock lock(_mutex);
        _signalled = true;
        _condition.notify_one();
    }

  private:
    std::mutex _mutex;
    std::condition_variable _condition;
    bool _signalled = false;
};

} // namespace

struct RealClock::Timers {
    std::mutex mutex;
    std::condition_variable changed;
    std::multimap<TimePoint, std::pair<TimerId, Block>> pending;
    TimerId nextId = 1;
    bool running = false;
    bool ended = false;

    static void run(const std::shared_ptr<Timers>& timers) {
        std::unique_lock lock(timers->mutex);
        while (!timers->ended) {
            if (timers->pending.empty()) {
                timers->changed.wait(lock);
                continue;
            }
            const auto first = timers->pending.begin();
            const TimePoint due = first->first;
            if (std::chrono::steady_clock::now() < due) {
                timers->changed.wait_until(lock, due);
                continue;
            }
            Block block = std::move(first->second.second);
            timers->pending.erase(first);
            lock.unlock();
            block();
            block = nullptr; // releases captured objects before the lock is taken again
            lock.lock();
        }
    }
};

RealClock::RealClock() : _timers(std::make_shared<Timers>()) {}

RealClock::~RealClock() {
    const std::scoped_lock lock(_timers->mutex);
    _timers->ended = true;
    _timers->changed.notify_all();
}

Clock::TimePoint RealClock::now() {
    return std::chrono::steady_clock::now();
}

std::chrono::system_clock::time_point RealClock::wallTime() {
    return std::chrono::system_clock::now();
}

void RealClock::sleepFor(Duration duration) {
    std::this_thread::sleep_for(duration);
}

std::unique_ptr<ClockEvent> RealClock::makeEvent() {
    return std::make_unique<RealEvent>();
}

Clock::TimerId RealClock::callAt(TimePoint time, Block block) {
    const std::scoped_lock lock(_timers->mutex);
    const TimerId id = _timers->nextId++;
    _timers->pending.emplace(time, std::pair{id, std::move(block)});
    if (!_timers->running) {
        _timers->running = true;
        // Detached: the thread shares the timers, and a block of it may be what destroys the clock.
        std::thread([timers = _timers] { Timers::run(timers); }).detach();
    }
    // Each time, because the new timer may be due before the one that the thread waits for.
    _timers->changed.notify_all();
    return id;
}

void RealClock::cancel(TimerId timer) {
    Block dropped; // destroyed after unlocking: captured objects may call back
    const std::scoped_lock lock(_timers->mutex);
    for (auto entry = _timers->pending.begin(); entry != _timers->pending.end(); ++entry) {
        if (entry->second.first != timer) continue;
        dropped = std::move(entry->second.second);
        _timers->pending.erase(entry);
        return;
    }
}

} // namespace zul
