// One port of the embedded bus with the printer that belongs to it, and one attachment of that printer on the bus. The
// port outlives all attachments; each attachment has its own services and handles. What is shared between the printers'
// queues and the main queue is guarded by the port's lock; no callback runs while it is held.
#pragma once

#include "platform/dispatch/Queue.h"
#include "platform/usb/ServiceRegistry.h"
#include "virtual_printer/VirtualJournal.h"
#include "virtual_printer/VirtualPrinter.h"

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace zul {

/// The two bulk endpoints of one interface. Guarded by the port's lock, but for waiting for the event.
struct VirtualEndpointPair {
    std::deque<VirtualTransfer> transfers; // ready to be read
    std::unique_ptr<ClockEvent> changed;   // a transfer became ready, or the attachment ended
    const void* owner = nullptr;           // the handle that holds the claim
};

/// From an arrival to the departure that follows it.
struct VirtualAttachment {
    std::vector<ServiceToken> tokens; // main queue only
    std::atomic<bool> isGone{false};
    std::vector<VirtualEndpointPair> endpointPairs; // one per interface; how many does not change
    // The rest is guarded by the port's lock.
    const VirtualEndpointPair* writer = nullptr; // whose write is under way: the frames of two must not mix
    std::map<const void*, std::function<void()>> holderWatches;
};

class VirtualPort : public std::enable_shared_from_this<VirtualPort> {
  public:
    VirtualPort(MainQueue& mainQueue, Clock& clock, std::shared_ptr<VirtualJournal> journal,
                VirtualPrinterSettings settings, std::uint8_t bus, std::uint8_t port);

    // ---- main queue ----
    /// Where its services go; null: no service and no block of it reaches the main queue from then on.
    void setRegistry(ServiceRegistry* registry);
    /// The printer arrives and its interfaces are announced. Without effect while it is attached.
    void attach();
    /// The printer leaves now; it returns if the departure says so.
    void depart(std::shared_ptr<VirtualAttachment> attachment, const VirtualDeparture& departure);
    /// The printer leaves and does not return by itself. Without effect while it is away.
    void unplug();
    /// Another program takes the printer, or releases it; several are counted.
    void setHeldByOther(bool isHeld);

    // ---- any thread ----
    /// Calls inspect with the lock held; it must be brief and call no operation of the port.
    void inspect(const std::function<void(const VirtualPrinter&)>& inspect);
    /// Ends the attachment for its handles at once and posts the rest to the main queue.
    void leave(const std::shared_ptr<VirtualAttachment>& attachment, const VirtualDeparture& departure);
    /// Adds an entry of this printer to the journal.
    void journal(const char* event, const std::string& command = {}, std::uint32_t length = 0,
                 const std::string& result = {});
    Clock& clock() { return _clock; }
    /// Where the printer is attached: bus in the top byte, port in the nibble below; as a pair; as text ("1-3").
    std::uint32_t locationID() const;
    std::pair<std::uint8_t, std::uint8_t> location() const { return {_bus, _port.load()}; }
    std::string locationText() const;

    // ---- for the handles, on the printers' queues; number is the interface's ----
    /// Claims the interface for owner, the address of a handle; success if it has it already.
    /// kIOReturnExclusiveAccess when another handle or another program has it.
    IOReturn claim(VirtualAttachment& attachment, std::uint8_t number, const void* owner);
    /// kIOReturnError when owner does not have the claim.
    IOReturn release(VirtualAttachment& attachment, std::uint8_t number, const void* owner);
    /// No handle but owner holds the interface, and no other program holds the printer.
    bool isFree(const VirtualAttachment& attachment, std::uint8_t number, const void* owner);
    bool isHeldByOther();
    /// Calls mayBeFree on the main queue when the other program releases the printer, and once at the beginning if the
    /// interface is free already. Null ends the watch.
    void watchHolder(VirtualAttachment& attachment, std::uint8_t number, const void* owner,
                     std::function<void()> mayBeFree);
    /// One bulk read of at most size bytes; size receives the count. Blocks until a transfer is ready or the deadline.
    IOReturn read(VirtualAttachment& attachment, std::uint8_t number, std::uint8_t* buffer, std::uint32_t& size,
                  Clock::TimePoint deadline);
    /// One bulk write; a large one takes the time that the printer's speed gives it.
    IOReturn write(const std::shared_ptr<VirtualAttachment>& attachment, std::uint8_t number,
                   std::span<const std::uint8_t> bytes, Clock::TimePoint deadline,
                   const IOUSBInterfaceInterface::WriteProgress& progress);
    /// A soft reset, or a reset of the device: frames and answers under way are dropped.
    void resetPrinter(VirtualAttachment& attachment);

    const VirtualPrinterSettings settings;

  private:
    void post(Block block);
    void schedule(VirtualDeparture departure, const std::shared_ptr<VirtualAttachment>& attachment);
    void endForHandles(VirtualAttachment& attachment);
    bool waitForTurn(VirtualAttachment& attachment, const VirtualEndpointPair& endpoints, Clock::TimePoint deadline);
    IOReturn writePieces(const std::shared_ptr<VirtualAttachment>& attachment, std::uint8_t number,
                         std::span<const std::uint8_t> bytes, Clock::TimePoint deadline,
                         const IOUSBInterfaceInterface::WriteProgress& progress);
    void deliver(const std::shared_ptr<VirtualAttachment>& attachment, std::uint8_t number,
                 std::vector<VirtualTransfer> transfers);
    bool isFreeLocked(const VirtualAttachment& attachment, std::uint8_t number, const void* owner) const;
    void notifyWatch(const void* owner);
    void holdFor(std::chrono::milliseconds time);

    MainQueue& _mainQueue;
    Clock& _clock;
    const std::shared_ptr<VirtualJournal> _journal;
    ServiceRegistry* _registry = nullptr;           // main queue only
    std::shared_ptr<VirtualAttachment> _attachment; // main queue only
    unsigned _attachCount = 0; // main queue only: a return is dropped if the printer was attached again before it
    bool _isPulled = false;    // main queue only: unplugged by hand, so restarts do not bring it back

    std::mutex _postMutex;
    bool _mayPost = false; // guarded by _postMutex

    std::mutex _mutex;
    VirtualPrinter _printer;
    int _heldByOther = 0;
    const std::uint8_t _bus;
    std::atomic<std::uint8_t> _port;
};

} // namespace zul
