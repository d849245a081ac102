// A signal handler may do almost nothing: it writes the signal's number to a pipe. A thread of its own reads the pipe
// and posts to the main queue.
#include "platform/dispatch/Signals.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <vector>

namespace zul {

namespace {

std::atomic<int> writeEnd{-1};

void noteSignal(int number) {
    const int kept = errno;
    const auto byte = static_cast<unsigned char>(number);
    [[maybe_unused]] const auto written = ::write(writeEnd, &byte, 1);
    errno = kept;
}

} // namespace

struct Signals::State {
    State(MainQueue& queue, std::vector<int> signalNumbers, std::function<void(int)> signalHandler)
        : mainQueue(queue), numbers(std::move(signalNumbers)), handler(std::move(signalHandler)) {}

    MainQueue& mainQueue;
    const std::vector<int> numbers;
    const std::function<void(int)> handler;
    std::mutex mutex;
    bool isEnded = false; // under the mutex: from then on the queue may be gone

    static void read(const std::shared_ptr<State>& state, int readEnd) {
        for (;;) {
            unsigned char byte = 0;
            const auto count = ::read(readEnd, &byte, 1);
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) break;
            const std::scoped_lock lock(state->mutex);
            if (state->isEnded) break;
            state->mainQueue.async([weak = std::weak_ptr(state), number = int{byte}] {
                if (const auto self = weak.lock(); self && !self->isEnded) self->handler(number);
            });
        }
        ::close(readEnd);
    }
};

Signals::Signals(MainQueue& mainQueue, std::initializer_list<int> numbers, std::function<void(int)> handler)
    : _state(std::make_shared<State>(mainQueue, std::vector<int>(numbers), std::move(handler))) {
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) return; // without it the signals keep their default action
    ::fcntl(ends[1], F_SETFL, O_NONBLOCK);
    writeEnd = ends[1];
    std::thread([state = _state, readEnd = ends[0]] { State::read(state, readEnd); }).detach();
    struct sigaction action {};
    action.sa_handler = noteSignal;
    action.sa_flags = SA_RESTART;
    for (const int number : _state->numbers) ::sigaction(number, &action, nullptr);
}

Signals::~Signals() {
    for (const int number : _state->numbers) std::signal(number, SIG_DFL);
    {
        const std::scoped_lock lock(_state->mutex);
        _state->isEnded = true;
    }
    if (const int end = writeEnd.exchange(-1); end >= 0) ::close(end); // ends the thread
}

void ignoreBrokenPipes() {
    std::signal(SIGPIPE, SIG_IGN);
}

} // namespace zul
