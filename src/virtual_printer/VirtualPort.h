// One port of the embedded bus with the printer that belongs to it, and one attachment of that printer on the bus. The
// port outlives all attachments; each attachment has its own services and handles. What is shared between the printers'
// queues and the main queue is guarded by the port's lock; nothing is called back while it is held.
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

/// The pipes of one interface. Guarded by the port's lock, but for waiting for the event.
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
    const VirtualEndpointPair* writer = nullptr; // the endpoints whose write is under way: frames of two must not mix
    std::map<const void*, std::function<void()>> holderWatches;
};

class VirtualPort : public std::enable_shared_from_this<VirtualPort> {
  public:
    VirtualPort(MainQueue& mainQueue, Clock& clock, std::shared_ptr<VirtualJournal> journal,
                VirtualPrinterSettings settings, std::uint8_t bus, std::uint8_t port);

    // ---- main queue ----
    /// Null ends everything: from then on nothing is posted to the main queue any more.
    void setRegistry(ServiceRegistry* registry);
    void attach();
    /// The printer leaves now; it returns if the departure says so.
    void depart(std::shared_ptr<VirtualAttachment> attachment, const VirtualDeparture& departure);
    void unplug();
    void setHeldByOther(bool isHeld);

    // ---- any thread ----
    void inspect(const std::function<void(const VirtualPrinter&)>& inspect);
    /// Ends the attachment for its handles at once and posts the rest to the main queue.
    void leave(const std::shared_ptr<VirtualAttachment>& attachment, const VirtualDeparture& departure);
    void journal(const char* event, const std::string& command = {}, std::uint32_t length = 0,
                 const std::string& result = {});
    Clock& clock() { return _clock; }
    std::uint32_t locationID() const;
    std::pair<std::uint8_t, std::uint8_t> location() const { return {_bus, _port.load()}; }
    std::string locationText() const;

    // ---- for the handles, on the printers' queues; number is the interface's ----
    IOReturn claim(VirtualAttachment& attachment, std::uint8_t number, const void* owner);
    IOReturn release(VirtualAttachment& attachment, std::uint8_t number, const void* owner);
    /// Nobody but owner holds the interface, and no other program holds the printer.
    bool isFree(const VirtualAttachment& attachment, std::uint8_t number, const void* owner);
    bool isHeldByOther();
    /// Calls mayBeFree on the main queue when the other program releases the printer, and once at the beginning if the
    /// interface is free already. Null ends the watch.
    void watchHolder(VirtualAttachment& attachment, std::uint8_t number, const void* owner,
                     std::function<void()> mayBeFree);
    IOReturn read(VirtualAttachment& attachment, std::uint8_t number, std::uint8_t* buffer, std::uint32_t& size,
                  Clock::TimePoint deadline);
    IOReturn write(const std::shared_ptr<VirtualAttachment>& attachment, std::uint8_t number,
                   std::span<const std::uint8_t> bytes, Clock::TimePoint deadline,
                   const IOUSBInterfaceInterface::WriteProgress& progress);
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
    unsigned _attachCount = 0; // main queue only: a return that was overtaken by another coming is void
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
