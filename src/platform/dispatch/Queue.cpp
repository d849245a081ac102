// Serial queues, and the queue-specific data of both kinds of queue.
// Called on any thread; blocks run on the queue's own thread.
#include "platform/dispatch/Queue.h"

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/QueueRole.h"
#include "platform/foundation/SystemLog.h"

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace zul {

struct Queue::Specifics {
    std::map<const void*, const void*> values;
};

namespace {
thread_local const void* currentSpecifics = nullptr; // a Queue::Specifics; the type is private to Queue
std::atomic<int> liveThreadCount{0};
} // namespace

Queue::Queue() : _specifics(std::make_shared<Specifics>()) {}
Queue::~Queue() = default;

void Queue::setSpecific(const void* key, const void* value) {
    _specifics->values[key] = value;
}

const void* Queue::currentSpecific(const void* key) {
    const auto* specifics = static_cast<const Specifics*>(currentSpecifics);
    if (specifics == nullptr) return nullptr;
    const auto found = specifics->values.find(key);
    return found == specifics->values.end() ? nullptr : found->second;
}

void Queue::setCurrent(const Specifics* specifics) {
    currentSpecifics = specifics;
}

void reportWrongQueue(std::once_flag& isLogged, const char* text) {
#ifdef ZUL_SANITIZED
    static_cast<void>(isLogged);
    std::fprintf(stderr, "%s\n", text);
    std::abort();
#else
    std::call_once(isLogged, [text] { systemLog(text); });
#endif
}

// The thread and the queue object share the state, so either may end first.
struct SerialQueue::State {
    State(std::string queueLabel, Clock& queueClock, std::shared_ptr<Specifics> queueSpecifics)
        : label(std::move(queueLabel)), clock(queueClock), specifics(std::move(queueSpecifics)) {}

    const std::string label;
    Clock& clock;
    const std::shared_ptr<Specifics> specifics;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Block> blocks;
    bool started = false;
    bool busy = false; // a block runs or waits; reported to the clock once, not per block: a thread that waits for time
                       // is idle, whatever is queued after it
    bool released = false;

    static void run(const std::shared_ptr<State>& state) {
        setCurrent(state->specifics.get());
        std::unique_lock lock(state->mutex);
        for (;;) {
            state->changed.wait(lock, [&] { return !state->blocks.empty() || state->released; });
            if (state->blocks.empty()) break;
            Block block = std::move(state->blocks.front());
            state->blocks.pop_front();
            lock.unlock();
            block();
            block = nullptr; // may release the queue itself: this thread keeps the state alive
            lock.lock();
            if (state->blocks.empty()) {
                // Only now, not after each block: the clock must not take the pause between two queued blocks for
                // idleness.
                state->busy = false;
                state->clock.workDone();
                state->changed.notify_all();
            }
        }
        lock.unlock();
        --liveThreadCount;
    }
};

SerialQueue::SerialQueue(std::string label, Clock& clock)
    : _state(std::make_shared<State>(std::move(label), clock, _specifics)) {}

SerialQueue::~SerialQueue() {
    const std::scoped_lock lock(_state->mutex);
    _state->released = true;
    _state->changed.notify_all();
}

void SerialQueue::async(Block block) {
    const std::scoped_lock lock(_state->mutex);
    if (!_state->busy) {
        _state->busy = true;
        _state->clock.workAdded();
    }
    _state->blocks.push_back(std::move(block));
    if (!_state->started) {
        _state->started = true;
        ++liveThreadCount;
        std::thread([state = _state] { State::run(state); }).detach();
    }
    _state->changed.notify_all();
}

void SerialQueue::waitUntilIdle() {
    std::unique_lock lock(_state->mutex);
    _state->changed.wait(lock, [&] { return !_state->busy; });
}

const std::string& SerialQueue::label() const {
    return _state->label;
}

int SerialQueue::liveThreads() {
    return liveThreadCount;
}

} // namespace zul
