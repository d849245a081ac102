// The main queue on an event descriptor: plain C++, so that a command line can run it in a loop and a window can hang
// it on its own.
#include "platform/dispatch/Queue.h"

#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace zul {

struct MainQueue::State {
    explicit State(Clock& queueClock) : clock(queueClock), descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~State() {
        if (descriptor >= 0) ::close(descriptor);
    }

    Clock& clock;
    const int descriptor;
    std::mutex mutex;
    std::condition_variable finished; // a block that somebody waits for has run, or the queue was closed
    std::deque<Block> blocks;
    bool closed = false;
    bool quit = false;
    int status = 0;

    // Both under the mutex: the descriptor is readable exactly while blocks wait.
    void raise() const {
        const std::uint64_t one = 1;
        while (::write(descriptor, &one, sizeof one) < 0 && errno == EINTR) {
        }
    }
    void lower() const {
        std::uint64_t count = 0;
        while (::read(descriptor, &count, sizeof count) < 0 && errno == EINTR) {
        }
    }
};

MainQueue::MainQueue(Clock& clock) : _state(std::make_shared<State>(clock)) {
    setCurrent(_specifics.get());
}

MainQueue::~MainQueue() {
    close();
    setCurrent(nullptr);
}

void MainQueue::async(Block block) {
    const std::scoped_lock lock(_state->mutex);
    if (_state->closed) return;
    _state->clock.workAdded();
    _state->blocks.push_back(std::move(block));
    if (_state->blocks.size() == 1) _state->raise();
}

bool MainQueue::sync(Block block) {
    const auto state = _state;
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

int MainQueue::eventDescriptor() const {
    return _state->descriptor;
}

bool MainQueue::runPending() {
    const auto state = _state;
    bool ran = false;
    for (;;) {
        Block block;
        {
            const std::scoped_lock lock(state->mutex);
            if (state->blocks.empty()) return ran;
            block = std::move(state->blocks.front());
            state->blocks.pop_front();
            if (state->blocks.empty()) state->lower();
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
    pollfd entry{_state->descriptor, POLLIN, 0};
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
        if (_state->quit) return; // the first reason to end is the one that counts
        _state->quit = true;
        _state->status = status;
    }
    async([] {}); // wakes a loop that sleeps
}

bool MainQueue::hasQuit() const {
    const std::scoped_lock lock(_state->mutex);
    return _state->quit;
}

void MainQueue::close() {
    std::deque<Block> dropped; // destroyed without the lock: what the blocks hold may post again
    {
        const std::scoped_lock lock(_state->mutex);
        if (_state->closed) return;
        _state->closed = true;
        dropped.swap(_state->blocks);
        if (!dropped.empty()) _state->lower();
        _state->finished.notify_all();
    }
    for (std::size_t i = 0; i < dropped.size(); ++i) _state->clock.workDone();
}

} // namespace zul
