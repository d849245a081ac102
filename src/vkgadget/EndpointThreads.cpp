// The loops of the three endpoint threads, and ending them: each waits in a system call of the kernel, which only a
// signal ends. Started and stopped by the port on the main queue.
#include "vkgadget/EndpointThreads.h"

#include "platform/dispatch/Signals.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <pthread.h>

namespace zul {

namespace {

// The kernel needs a contiguous buffer of the size that is asked for, so it stays moderate.
constexpr std::size_t kLargestRead = 64 * 1024;
constexpr auto kInterruptInterval = std::chrono::milliseconds(10);
// An endpoint that fails for a reason of its own must not keep the processor busy.
constexpr auto kErrorPause = std::chrono::milliseconds(5);

} // namespace

std::size_t readSize(std::size_t bytesWanted, std::size_t packetSize) {
    return std::max(std::min(bytesWanted, kLargestRead) / packetSize * packetSize, packetSize);
}

EndpointThreads::EndpointThreads(FunctionFs& function, EndpointHandlers handlers)
    : _function(function), _handlers(std::move(handlers)) {}

void EndpointThreads::start() {
    letSignalEndSystemCalls(SIGUSR1);
    run(_workers[0], &EndpointThreads::controlLoop);
    run(_workers[1], &EndpointThreads::outLoop);
    run(_workers[2], &EndpointThreads::inLoop);
}

void EndpointThreads::run(Worker& worker, void (EndpointThreads::*loop)()) {
    worker.thread = std::thread([this, &worker, loop] {
        (this->*loop)();
        worker.finished = true;
    });
}

void EndpointThreads::stop() {
    {
        const std::lock_guard lock(_outgoingMutex);
        _stopping = true;
    }
    _outgoingChanged.notify_all();
    for (Worker& worker : _workers) {
        if (!worker.thread.joinable()) continue;
        // Repeated, since a signal that comes just before the call that waits is lost.
        while (!worker.finished) {
            ::pthread_kill(worker.thread.native_handle(), SIGUSR1);
            std::this_thread::sleep_for(kInterruptInterval);
        }
        worker.thread.join();
    }
}

void EndpointThreads::send(Data transfer) {
    const std::lock_guard lock(_outgoingMutex);
    _outgoing.push_back({.data = std::move(transfer), .isStall = false});
    _outgoingChanged.notify_all();
}

void EndpointThreads::stallIn() {
    const std::lock_guard lock(_outgoingMutex);
    _outgoing.push_back({.data = {}, .isStall = true});
    _outgoingChanged.notify_all();
}

void EndpointThreads::dropTransfers() {
    const std::lock_guard lock(_outgoingMutex);
    _outgoing.clear();
}

void EndpointThreads::controlLoop() {
    while (!_stopping) {
        const auto event = _function.nextEvent();
        if (!event) continue;
        switch (event->kind) {
        case FunctionEventKind::enable:
            _packetSize = _function.packetSize();
            _handlers.configured(true);
            break;
        case FunctionEventKind::disable:
        case FunctionEventKind::unbind:
            _handlers.configured(false);
            break;
        case FunctionEventKind::setup:
            handleSetup(event->setup);
            break;
        case FunctionEventKind::bind:
        case FunctionEventKind::other:
            break;
        }
    }
}

void EndpointThreads::handleSetup(const SetupRequest& request) {
    if (const auto reply = _handlers.control(request)) {
        _function.answer(request, *reply);
    } else {
        _function.refuse(request);
    }
}

void EndpointThreads::outLoop() {
    std::size_t bytesWanted = 0;
    Data buffer;
    while (!_stopping) {
        buffer.resize(readSize(bytesWanted, _packetSize));
        const int got = _function.readOut(buffer);
        if (got > 0) {
            buffer.resize(static_cast<std::size_t>(got));
            bytesWanted = _handlers.received(buffer);
        }
        if (got == -ESHUTDOWN) bytesWanted = 0; // a new host begins with a new command
        if (got < 0 && got != -EINTR) std::this_thread::sleep_for(kErrorPause);
    }
}

std::optional<EndpointThreads::Outgoing> EndpointThreads::nextOutgoing() {
    std::unique_lock lock(_outgoingMutex);
    _outgoingChanged.wait(lock, [this] { return _stopping || !_outgoing.empty(); });
    if (_stopping) return std::nullopt;
    Outgoing next = std::move(_outgoing.front());
    _outgoing.pop_front();
    return next;
}

void EndpointThreads::inLoop() {
    while (const auto next = nextOutgoing()) {
        if (next->isStall) {
            _function.haltIn();
            continue;
        }
        // A transfer that the host did not fetch before it left, or reset the device, is lost, as on a real printer.
        if (_function.writeIn(next->data, _packetSize) < 0) dropTransfers();
    }
}

} // namespace zul
