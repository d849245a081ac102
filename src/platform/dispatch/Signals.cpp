// A signal handler may do very little: it writes the signal's number to a pipe that the main queue watches. signalfd is
// not used, because it needs the signals blocked in every thread, including those of libraries: one thread without the
// block would end the program during an update. Child processes would also inherit the block and could not be
// interrupted.
#include "platform/dispatch/Signals.h"

#include "platform/dispatch/Queue.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <unistd.h>
#include <utility>
#include <vector>

namespace zul {

namespace {

struct Pipe {
    int readEnd = -1;
    int writeEnd = -1;
};

// Created once and never closed: a handler may still be writing after its signal has its default action again.
const Pipe& signalPipe() {
    static const Pipe made = [] {
        int ends[2] = {-1, -1};
        if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return Pipe{};
        return Pipe{ends[0], ends[1]};
    }();
    return made;
}

std::atomic<int> writeEnd{-1}; // set before the first handler is installed

void noteSignal(int number) {
    // The interrupted code may be about to read errno.
    const int kept = errno;
    const auto byte = static_cast<unsigned char>(number);
    [[maybe_unused]] const auto written = ::write(writeEnd, &byte, 1);
    errno = kept;
}

void doNothing(int /*number*/) {}

void install(int number, void (*handler)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    ::sigaction(number, &action, nullptr);
}

} // namespace

Signals::Signals(MainQueue& mainQueue, std::vector<int> numbers, std::function<void(int)> handler)
    : _mainQueue(mainQueue), _numbers(std::move(numbers)),
      _handler(std::make_shared<const std::function<void(int)>>(std::move(handler))) {
    const Pipe& pipe = signalPipe();
    if (pipe.readEnd < 0) return;
    writeEnd = pipe.writeEnd;
    unsigned char unserved = 0; // bytes that arrived too late for an earlier object
    while (::read(pipe.readEnd, &unserved, 1) == 1) {
    }
    _mainQueue.watch(pipe.readEnd, [this] { postReceived(); });
    // Last, when the pipe is watched. Interrupted system calls continue: libraries do not expect EINTR.
    for (const int number : _numbers) install(number, noteSignal, SA_RESTART);
}

Signals::~Signals() {
    for (const int number : _numbers) std::signal(number, SIG_DFL);
    _mainQueue.unwatch(signalPipe().readEnd);
}

// Posts the handler's call, so that blocks queued before the signal run first.
void Signals::postReceived() {
    unsigned char number = 0;
    while (::read(signalPipe().readEnd, &number, 1) == 1) {
        _mainQueue.async([handler = std::weak_ptr(_handler), number = int{number}] {
            if (const auto run = handler.lock()) (*run)(number);
        });
    }
}

void ignoreBrokenPipes() {
    std::signal(SIGPIPE, SIG_IGN);
}

void letSignalEndSystemCalls(int number) {
    // SIG_IGN would not interrupt a call, and SA_RESTART would repeat it.
    install(number, doNothing, /*flags=*/0);
}

} // namespace zul
