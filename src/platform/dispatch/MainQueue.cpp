// The main queue, based on descriptors: zulctl runs it in a loop of its own, a window serves it whenever its descriptor
// is readable. Blocks are queued on any thread; they and the watches run on the main thread.
#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/dispatch/QueueRole.h"
#include "platform/files/WakeEvent.h"

#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <poll.h>
#include <sys/epoll.h>
#include <utility>
#include <vector>

namespace zul {

namespace {

const char mainQueueMarker = 0; // its address marks the main queue

// The main queues of this thread, which the newest one marks. A program has one; tests have several.
std::vector<const MainQueue*>& queuesOfThread() {
    thread_local std::vector<const MainQueue*> queues;
    return queues;
}

} // namespace

struct MainQueue::State {
    explicit State(Clock& queueClock) : clock(queueClock), descriptor(::epoll_create1(EPOLL_CLOEXEC)) {
        add(blocksWait.descriptor());
    }

    Clock& clock;
    const ScopedFd descriptor;    // epoll; readable while any added descriptor is readable
    const WakeEvent blocksWait;   // guarded by the mutex: raised exactly while blocks are queued
    std::map<int, Block> watches; // by descriptor; main thread only
    std::mutex mutex;
    std::condition_variable finished; // a block of sync() has run, or the queue was closed
    std::deque<Block> blocks;
    bool closed = false;
    bool quit = false;
    int status = 0;

    void add(int added) const {
        epoll_event event{};
        event.events = EPOLLIN;
        // Level-triggered: a watch that does not read everything is served again.
        event.data.fd = added;
        ::epoll_ctl(descriptor.get(), EPOLL_CTL_ADD, added, &event);
    }
    void remove(int removed) const { ::epoll_ctl(descriptor.get(), EPOLL_CTL_DEL, removed, nullptr); }
    bool serveWatches();
};

// Main thread. Returns true if a watched descriptor was readable.
bool MainQueue::State::serveWatches() {
    // Spares programs without watches a system call per round.
    if (watches.empty()) return false;
    std::array<epoll_event, 8> events{};
    const int count = ::epoll_wait(descriptor.get(), events.data(), static_cast<int>(events.size()), /*timeout=*/0);
    bool served = false;
    for (int i = 0; i < count; ++i) {
        const auto found = watches.find(events[static_cast<std::size_t>(i)].data.fd);
        if (found == watches.end()) continue;
        const Block readable = found->second; // a copy: it may remove its own watch
        readable();
        served = true;
    }
    return served;
}

MainQueue::MainQueue(Clock& clock) : _state(std::make_shared<State>(clock)) {
    setSpecific(&mainQueueMarker, this);
    queuesOfThread().push_back(this);
    setCurrent(_specifics.get());
}

MainQueue::~MainQueue() {
    close();
    auto& queues = queuesOfThread();
    std::erase(queues, this);
    setCurrent(queues.empty() ? nullptr : queues.back()->_specifics.get());
}

void MainQueue::async(Block block) {
    const std::scoped_lock lock(_state->mutex);
    if (_state->closed) return;
    _state->clock.workAdded();
    _state->blocks.push_back(std::move(block));
    // One wake-up for any number of blocks: the descriptor stays readable until the last of them is taken.
    if (_state->blocks.size() == 1) _state->blocksWait.raise();
}

bool MainQueue::sync(Block block) {
    const auto state = _state;
    // Shared with the block: this call returns when the queue is closed, and the block may still exist then.
    const auto done = std::make_shared<bool>(false);
    async([state, done, block = std::move(block)] {
        block();
        const std::scoped_lock lock(state->mutex);
        *done = true;
        state->finished.notify_all();
    });
    std::unique_lock lock(state->mutex);
    state->finished.wait(lock, [&] { return *done || state->closed; });
    return *done;
}

void assertOnMainQueue() {
    if (Queue::currentSpecific(&mainQueueMarker) != nullptr) return;
    static std::once_flag isLogged;
    reportWrongQueue(isLogged, "a block of the main queue runs on another queue");
}

int MainQueue::eventDescriptor() const {
    return _state->blocksWait.descriptor() < 0 ? -1 : _state->descriptor.get();
}

void MainQueue::watch(int descriptor, Block readable) {
    _state->watches[descriptor] = std::move(readable);
    _state->add(descriptor);
}

void MainQueue::unwatch(int descriptor) {
    if (_state->watches.erase(descriptor) > 0) _state->remove(descriptor);
}

bool MainQueue::runPending() {
    const auto state = _state;
    setCurrent(_specifics.get()); // the end of another main queue of this thread has left the thread without one
    bool ran = false;
    for (;;) {
        ran = state->serveWatches() || ran; // in every round, so that blocks which post others do not delay a signal
        Block block;
        {
            const std::scoped_lock lock(state->mutex);
            if (state->blocks.empty()) return ran;
            block = std::move(state->blocks.front());
            state->blocks.pop_front();
            // Lowered before the last block runs, so that a block which that one queues wakes the loop again.
            if (state->blocks.empty()) static_cast<void>(state->blocksWait.lower());
        }
        block();
        block = nullptr;
        state->clock.workDone();
        ran = true;
        const std::scoped_lock lock(state->mutex);
        if (state->quit) return ran;
    }
}

void MainQueue::waitForWork() {
    pollfd entry{_state->descriptor.get(), POLLIN, 0};
    while (::poll(&entry, 1, -1) < 0 && errno == EINTR) {
    }
}

int MainQueue::run() {
    while (!hasQuit()) {
        if (!runPending()) waitForWork();
    }
    const std::scoped_lock lock(_state->mutex);
    return _state->status;
}

void MainQueue::quit(int status) {
    {
        const std::scoped_lock lock(_state->mutex);
        if (_state->quit) return; // the first status is used
        _state->quit = true;
        _state->status = status;
    }
    async([] {}); // wakes a waiting loop
}

bool MainQueue::hasQuit() const {
    const std::scoped_lock lock(_state->mutex);
    return _state->quit;
}

void MainQueue::close() {
    std::deque<Block> dropped; // destroyed after unlocking: captured objects may post again
    {
        const std::scoped_lock lock(_state->mutex);
        if (_state->closed) return;
        _state->closed = true;
        dropped.swap(_state->blocks);
        if (!dropped.empty()) static_cast<void>(_state->blocksWait.lower());
        _state->finished.notify_all();
    }
    for (std::size_t i = 0; i < dropped.size(); ++i) _state->clock.workDone();
}

} // namespace zul
