// The threads that serve a gadget's endpoints: one for control requests, and two per interface, from the host to the
// printer and from the printer to the host.
#pragma once

#include "platform/foundation/Data.h"
#include "vkgadget/FunctionFs.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace zul {

/// Each handler is called on a separate thread; received on one per interface, so that a call for one interface may
/// wait for a call for another.
struct EndpointHandlers {
    /// Receives bytes of the host in order, in pieces of any size. Returns how many more bytes the current command
    /// needs. The host waits until it returns.
    std::function<std::size_t(std::size_t interface, const Data& bytes)> received;
    /// The host has configured the device (true), or has deconfigured, reset or lost it (false).
    std::function<void(bool configured)> configured;
    /// Returns the reply to a control request; nullopt stalls it.
    std::function<std::optional<Data>(const SetupRequest& request)> control;
};

/// The size of a read when this many bytes are wanted. A read ends with a short packet or when it is full, and the host
/// sends no zero-length packet at the end: a read larger than the remaining data would never end, and reading single
/// packets would take minutes for a firmware image.
std::size_t readSize(std::size_t bytesWanted, std::size_t packetSize);

/// The function must outlive this object. Handlers may call send(), stallIn() and dropTransfers().
class EndpointThreads {
  public:
    /// Starts no thread yet. interfaces: as in the function's descriptors.
    EndpointThreads(FunctionFs& function, int interfaces, EndpointHandlers handlers);
    ~EndpointThreads() { stop(); }
    EndpointThreads(const EndpointThreads&) = delete;
    EndpointThreads& operator=(const EndpointThreads&) = delete;

    /// Starts the threads; the function must be open. Call once.
    void start();
    /// Ends the threads, including those that wait for the host. Do not call from a handler.
    void stop();

    /// Queues one transfer to the host; it waits until the host reads it. Any thread.
    void send(std::size_t interface, Data transfer);
    /// Queues a stall of the endpoint that the host reads from. Any thread.
    void stallIn(std::size_t interface);
    /// Stalls the endpoint that the host writes to. Call only inside the handler received.
    void stallOut(std::size_t interface) { _function.haltOut(interface); }
    /// Drops the transfers that the host has not begun to fetch. Any thread.
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
