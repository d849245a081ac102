// The threads that keep a gadget's endpoints moving: one for control requests, and for each interface one from the host
// to the printer and one from the printer to the host.
#pragma once

#include "vkgadget/FunctionFs.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace zul {

/// Each handler is called on a thread of its own kind; received on one for each interface, so that a call for one
/// interface may wait for one of another.
struct EndpointHandlers {
    /// Bytes that the host sent, in order, in pieces of any size. Answers how many more the command under way needs.
    /// The host waits while this takes its time.
    std::function<std::size_t(std::size_t interface, const Data& bytes)> received;
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
    EndpointThreads(FunctionFs& function, int interfaces, EndpointHandlers handlers);
    ~EndpointThreads() { stop(); }
    EndpointThreads(const EndpointThreads&) = delete;
    EndpointThreads& operator=(const EndpointThreads&) = delete;

    /// Starts the three threads; the function must be open. Once only.
    void start();
    /// Ends the threads, also those that wait for the host. Not from a handler.
    void stop();

    /// Queues one transfer to the host: it waits until the host asks for it. Any thread.
    void send(std::size_t interface, Data transfer);
    /// Queues a stall of the endpoint that the host reads from. Any thread.
    void stallIn(std::size_t interface);
    /// Stalls the endpoint that the host writes to. Only inside the handler of received bytes.
    void stallOut(std::size_t interface) { _function.haltOut(interface); }
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

    void run(std::function<void()> loop);
    void controlLoop();
    void outLoop(std::size_t interface);
    void inLoop(std::size_t interface);
    void handleSetup(const SetupRequest& request);
    std::optional<Outgoing> nextOutgoing(std::size_t interface);
    void enqueue(std::size_t interface, Outgoing outgoing);
    void dropTransfersOf(std::size_t interface);

    FunctionFs& _function;
    EndpointHandlers _handlers;
    std::atomic<bool> _stopping{false};
    std::atomic<std::size_t> _packetSize{512};
    std::mutex _outgoingMutex;
    std::condition_variable _outgoingChanged;
    std::vector<std::deque<Outgoing>> _outgoing; // by interface
    std::deque<Worker> _workers;
};

} // namespace zul
