// One port of the embedded bus with its printer, and one attachment of that printer to the bus. The port outlives all
// attachments; each attachment has its own services and handles. State that the printers' queues and the main queue
// share is guarded by the port's lock; no callback runs while it is held.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "platform/usb/ServiceRegistry.h"
#include "virtual_printer/VirtualJournal.h"
#include "virtual_printer/VirtualPrinter.h"
#include "virtual_printer/VirtualPrinterSettings.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace zul {

/// The two bulk endpoints of one interface. Guarded by the port's lock, except waiting for the event.
struct VirtualEndpointPair {
    std::deque<VirtualTransfer> transfers; // ready to be read
    std::unique_ptr<ClockEvent> changed;   // a transfer became ready, or the attachment ended
    const void* owner = nullptr;           // the handle that holds the claim
};

/// One attachment, from an arrival to the departure.
struct VirtualAttachment {
    std::vector<ServiceToken> tokens; // main queue only
    std::atomic<bool> isGone{false};
    std::vector<VirtualEndpointPair> endpointPairs; // one per interface; the number does not change
    // The members below are guarded by the port's lock.
    const VirtualEndpointPair* writer = nullptr; // whose write is in progress: frames of two interfaces must not mix
    std::map<const void*, std::function<void()>> holderWatches;
};

class VirtualPort : public std::enable_shared_from_this<VirtualPort> {
  public:
    /// The printer is detached at first. bus and port: its location, from 1; a port is at most 15.
    VirtualPort(MainQueue& mainQueue, Clock& clock, std::shared_ptr<VirtualJournal> journal,
                VirtualPrinterSettings settings, std::uint8_t bus, std::uint8_t port);

    // ---- main queue ----
    /// Where its services are registered; null: from then on it registers no service and posts no block.
    void setRegistry(ServiceRegistry* registry);
    /// Attaches the printer and announces its interfaces. No effect while it is attached.
    void attach();
    /// Detaches the printer now; it returns if departure says so.
    void depart(std::shared_ptr<VirtualAttachment> attachment, const VirtualDeparture& departure);
    /// Detaches the printer for good, until attach(). No effect while it is detached.
    void unplug();
    /// Another program claims the printer, or releases it. Calls nest by counting.
    void setHeldByOther(bool isHeld);

    // ---- any thread ----
    /// Calls inspect with the lock held; inspect must be short and must not call the port.
    void inspect(const std::function<void(const VirtualPrinter&)>& inspect);
    /// Ends the attachment for its handles at once, and posts the rest to the main queue.
    void leave(const std::shared_ptr<VirtualAttachment>& attachment, const VirtualDeparture& departure);
    /// Adds an entry of this printer to the journal.
    void journal(const char* event, const std::string& command = {}, std::uint32_t length = 0,
                 const std::string& result = {});
    /// The injected clock, for the deadlines of the handles.
    Clock& clock() { return _clock; }
    /// The printer's location: bus in the top byte, port in the nibble below; as a pair; as text ("1-3").
    std::uint32_t locationID() const;
    std::pair<std::uint8_t, std::uint8_t> location() const { return {_bus, _port.load()}; }
    std::string locationText() const;

    // Called by the handles on the printers' command queues. number: the interface.
    /// Claims the interface for owner, the address of a handle; success if owner has the claim already.
    /// kIOReturnExclusiveAccess if another handle or another program has it.
    IOReturn claim(VirtualAttachment& attachment, std::uint8_t number, const void* owner);
    /// Releases the claim. kIOReturnError if owner does not have it.
    IOReturn release(VirtualAttachment& attachment, std::uint8_t number, const void* owner);
    /// True if no other handle claims the interface, and no other program claims the printer.
    bool isFree(const VirtualAttachment& attachment, std::uint8_t number, const void* owner);
    /// True while setHeldByOther() or a fault of the printer simulates another program.
    bool isHeldByOther();
    /// Calls mayBeFree on the main queue when the other program releases the printer, and once at the start if the
    /// interface is already free. Null ends the watch.
    void watchHolder(VirtualAttachment& attachment, std::uint8_t number, const void* owner,
                     std::function<void()> mayBeFree);
    /// One bulk read of at most size bytes; size receives the count. Blocks until a transfer is ready or the deadline
    /// has passed.
    IOReturn read(VirtualAttachment& attachment, std::uint8_t number, std::uint8_t* buffer, std::uint32_t& size,
                  Clock::TimePoint deadline);
    /// One bulk write; a large one takes the time of the printer's configured speed.
    IOReturn write(const std::shared_ptr<VirtualAttachment>& attachment, std::uint8_t number,
                   std::span<const std::uint8_t> bytes, Clock::TimePoint deadline,
                   const IOUSBInterfaceInterface::WriteProgress& progress);
    /// A soft reset, or a reset of the device: pending frames and replies are dropped.
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
    unsigned _attachCount = 0; // main queue only: drops a scheduled return after a newer attachment
    bool _isPulled = false;    // main queue only: unplugged by hand, so a restart does not attach it again

    std::mutex _postMutex;
    bool _mayPost = false; // guarded by _postMutex

    std::mutex _mutex;
    VirtualPrinter _printer;
    int _heldByOther = 0;
    const std::uint8_t _bus;
    std::atomic<std::uint8_t> _port;
};

} // namespace zul
