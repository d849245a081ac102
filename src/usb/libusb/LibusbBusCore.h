// The running bus behind LibusbBus: events come in on any thread, are put in order, and are worked off on the main
// queue.
#pragma once

#include "usb/libusb/Attachment.h"
#include "usb/libusb/LibusbBus.h"

#include <deque>
#include <optional>

namespace zul {

/// What happened on the bus and was not handled yet. Outlives the bus inside the libusb session, because a callback
/// may run at any time until the session ends.
class BusInbox {
  public:
    struct Event {
        enum class Kind { arrived, left, reenumerated };
        Kind kind;
        std::optional<DeviceReference> device;  // arrived, left
        std::shared_ptr<Attachment> attachment; // reenumerated
    };

    explicit BusInbox(std::shared_ptr<MainPort> port) : _port(std::move(port)) {}
    /// What runs on main whenever events wait. Before the first event.
    void setReader(Block reader) { _reader = std::move(reader); }
    void add(Event event); // any thread
    bool take(std::optional<Event>& event);
    void clear();

  private:
    const std::shared_ptr<MainPort> _port;
    Block _reader;
    std::mutex _mutex;
    std::deque<Event> _events;
};

/// Main queue only.
class LibusbBus::Core : public std::enable_shared_from_this<Core> {
  public:
    Core(MainQueue& mainQueue, Clock& clock, ServiceRegistry& registry);
    IOReturn start(const LibusbBusOptions& options);
    void stop();
    void setRestartExpected(std::uint32_t locationID, bool expected);

  private:
    friend struct LibusbBusProbe;
    using Key = std::pair<std::uint8_t, std::uint8_t>; // bus, address
    struct Entry {
        std::shared_ptr<AttachedDevice> device;
        std::shared_ptr<Attachment> attachment; // null until announced
        std::vector<ServiceToken> tokens;
        bool isConfigured = false;
        Clock::TimePoint announceBy;
        Clock::TimerId timer = 0;
    };

    void drain();
    void arrived(libusb_device* device);
    void left(libusb_device* device);
    void reenumerated(const std::shared_ptr<Attachment>& attachment);
    bool isReady(Entry& entry);
    void announceOrWait(const std::shared_ptr<Entry>& entry);
    void announce(const std::shared_ptr<Entry>& entry);
    void terminate(Entry& entry);
    bool isCurrent(const std::shared_ptr<Entry>& entry) const;

    ServiceRegistry& _registry;
    const std::shared_ptr<MainPort> _port;
    const std::shared_ptr<NodeWatcher> _nodeWatcher = std::make_shared<NodeWatcher>();
    const std::shared_ptr<BusInbox> _inbox;
    std::shared_ptr<LibusbContext> _context;
    std::shared_ptr<std::atomic<bool>> _ended = std::make_shared<std::atomic<bool>>(false); // for the event thread
    int _callback = 0;
    bool _starting = false;
    bool _draining = false;
    std::map<Key, std::shared_ptr<Entry>> _entries;
};

} // namespace zul
