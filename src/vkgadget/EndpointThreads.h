// The three threads that keep a gadget's endpoints moving: control requests, host to printer, printer to host.
#pragma once

#include "vkgadget/FunctionFs.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace zul {

/// Each handler is called on a thread of its own kind, never two of the same kind at once.
struct EndpointHandlers {
    /// Bytes that the host sent, in order, in pieces of any size. Answers how many more the command under way needs.
    /// The host waits while this takes its time.
    std::function<std::size_t(const Data& bytes)> received;
    /// The host has configured the device (true), or configured it away, reset it or lost it (false).
    std::function<void(bool configured)> configured;
    /// The answer to a control request; nullopt refuses it.
    std::function<std::optional<Data>(const SetupRequest& request)> control;
};

/// How much to ask for when so many bytes are wanted. A read ends at a short packet or when it is full, and a host
/// sends no empty packet at the end: a read for more than still comes would wait without end, and one packet at a time
/// would take minutes for a firmware image.
std::size_t readSize(std::size_t bytesWanted, std::size_t packetSize);

/// The function must outlive it. Handlers may call send(), stallIn() and dropTransfers().
class EndpointThreads {
  public:
    EndpointThreads(FunctionFs& function, EndpointHandlers handlers);
    ~EndpointThreads() { stop(); }
    EndpointThreads(const EndpointThreads&) = delete;
    EndpointThreads& operator=(const EndpointThreads&) = delete;

    /// Starts the three threads; the function must be open. Once only.
    void start();
    /// Ends the threads, also those that wait for the host. Not from a handler.
    void stop();

    /// Queues one transfer to the host: it waits until the host asks for it. Any thread.
    void send(Data transfer);
    /// Queues a stall of the endpoint that the host reads from. Any thread.
    void stallIn();
    /// Stalls the endpoint that the host writes to. Only inside the handler of received bytes.
    void stallOut() { _function.haltOut(); }
    /// Drops what the host has not fetched yet, but for the transfer that it is fetching. Any thread.
    void dropTransfers();

  private:
    struct Outgoing {
        Data data;
        bool isStall = false;
    };
    struct Worker {
        std::thread thread;
        std::atomic<bool> finished{false};
    };

    void run(Worker& worker, void (EndpointThreads::*loop)());
    void controlLoop();
    void outLoop();
    void inLoop();
    void handleSetup(const SetupRequest& request);
    std::optional<Outgoing> nextOutgoing();

    FunctionFs& _function;
    EndpointHandlers _handlers;
    std::atomic<bool> _stopping{false};
    std::atomic<std::size_t> _packetSize{512};
    std::mutex _outgoingMutex;
    std::condition_variable _outgoingChanged;
    std::deque<Outgoing> _outgoing;
    Worker _workers[3];
};

} // namespace zul
