// The loops of the endpoint threads, and their end: each blocks in a system call that only a signal interrupts. Started
// and stopped by GadgetConnection on the main queue.
#include "vkgadget/EndpointThreads.h"

#include "platform/dispatch/Signals.h"
#include "platform/foundation/Data.h"
#include "vkgadget/FunctionFs.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace zul {

namespace {

// The kernel needs a contiguous buffer of the requested size, so it must not be large.
constexpr std::size_t kLargestRead = 64 * 1024;
constexpr auto kInterruptInterval = std::chrono::milliseconds(10);
// Keeps an endpoint that always fails from using a whole processor.
constexpr auto kErrorPause = std::chrono::milliseconds(5);

} // namespace

std::size_t readSize(std::size_t bytesWanted, std::size_t packetSize) {
    return std::max(std::min(bytesWanted, kLargestRead) / packetSize * packetSize, packetSize);
}

EndpointThreads::EndpointThreads(FunctionFs& function, int interfaces, EndpointHandlers handlers)
    : _function(function), _handlers(std::move(handlers)), _outgoing(static_cast<std::size_t>(interfaces)) {}

void EndpointThreads::start() {
    letSignalEndSystemCalls(SIGUSR1);
    run([this] { controlLoop(); });
    for (std::size_t interface = 0; interface < _outgoing.size(); ++interface) {
        run([this, interface] { outLoop(interface); });
        run([this, interface] { inLoop(interface); });
    }
}

void EndpointThreads::run(std::function<void()> loop) {
    Worker& worker = _workers.emplace_back();
    worker.thread = std::thread([&worker, loop = std::move(loop)] {
        loop();
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
        // Repeated, because a signal just before the blocking call has no effect.
        while (!worker.finished) {
            ::pthread_kill(worker.thread.native_handle(), SIGUSR1);
            std::this_thread::sleep_for(kInterruptInterval);
        }
        worker.thread.join();
    }
}

void EndpointThreads::send(std::size_t interface, Data transfer) {
    enqueue(interface, {.data = std::move(transfer), .isStall = false});
}

void EndpointThreads::stallIn(std::size_t interface) {
    enqueue(interface, {.data = {}, .isStall = true});
}

void EndpointThreads::enqueue(std::size_t interface, Outgoing outgoing) {
    const std::lock_guard lock(_outgoingMutex);
    _outgoing[interface].push_back(std::move(outgoing));
    _outgoingChanged.notify_all();
}

void EndpointThreads::dropTransfers() {
    for (std::size_t interface = 0; interface < _outgoing.size(); ++interface) dropTransfersOf(interface);
}

void EndpointThreads::dropTransfersOf(std::size_t interface) {
    const std::lock_guard lock(_outgoingMutex);
    _outgoing[interface].clear();
}

void EndpointThreads::controlLoop() {
    while (!_stopping) {
        const auto event = _function.nextEvent();
        if (!event) continue;
        switch (event->kind) {
        case FunctionEventKind::enable:
            // Known only now: it depends on the speed that host and controller have agreed on.
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

void EndpointThreads::outLoop(std::size_t interface) {
    std::size_t bytesWanted = 0;
    Data buffer;
    while (!_stopping) {
        buffer.resize(readSize(bytesWanted, _packetSize));
        const int got = _function.readOut(interface, buffer);
        if (got > 0) {
            buffer.resize(static_cast<std::size_t>(got));
            bytesWanted = _handlers.received(interface, buffer);
        }
        if (got == -ESHUTDOWN) bytesWanted = 0; // a new host begins with a new command
        if (got < 0 && got != -EINTR) std::this_thread::sleep_for(kErrorPause);
    }
}

std::optional<EndpointThreads::Outgoing> EndpointThreads::nextOutgoing(std::size_t interface) {
    std::unique_lock lock(_outgoingMutex);
    std::deque<Outgoing>& outgoing = _outgoing[interface];
    _outgoingChanged.wait(lock, [&] { return _stopping || !outgoing.empty(); });
    if (_stopping) return std::nullopt;
    Outgoing next = std::move(outgoing.front());
    outgoing.pop_front();
    return next;
}

void EndpointThreads::inLoop(std::size_t interface) {
    while (const auto next = nextOutgoing(interface)) {
        if (next->isStall) {
            _function.haltIn(interface);
            continue;
        }
        // A transfer that the host did not fetch before it left or reset the device is lost, as with a real printer.
        if (_function.writeIn(interface, next->data, _packetSize) < 0) dropTransfersOf(interface);
    }
}

} // namespace zul
