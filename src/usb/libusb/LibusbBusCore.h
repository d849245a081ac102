// The running bus, which LibusbBus owns: events come in on any thread, are put in order, and are handled on the main
// queue.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "platform/usb/ServiceRegistry.h"
#include "usb/libusb/AttachedDevice.h"
#include "usb/libusb/Attachment.h"
#include "usb/libusb/BusInbox.h"
#include "usb/libusb/BusServices.h"
#include "usb/libusb/DeviceSource.h"
#include "usb/libusb/LibusbBus.h"
#include "usb/libusb/MainQueuePoster.h"

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace zul {

/// Main queue only.
class LibusbBus::Core : public std::enable_shared_from_this<Core> {
  public:
    /// The registry must outlive stop(); a core is started once and not again after stop().
    Core(MainQueue& mainQueue, Clock& clock, ServiceRegistry& registry, const LibusbBusOptions& options);
    /// Announces what is attached and begins to listen. After a failure call stop() all the same.
    IOReturn start();
    /// Ends the source, gives the printers back and forgets everything. Runs no callback.
    void stop();
    ArrivalSight seesArrivals() const { return _source == nullptr ? ArrivalSight::no : _source->sight(); }
    // As described at LibusbBus.
    bool hasPending() const;
    void whenEnumerated(Block block);
    void setKept(std::uint32_t locationID, bool kept);

  private:
    friend struct LibusbBusProbe;
    // One device. It waits until it is configured and may be opened, is prepared if it is one of our printers, and is
    // announced.
    struct Entry {
        std::shared_ptr<AttachedDevice> device; // null once it has turned out not to be a printer
        std::shared_ptr<Attachment> attachment; // null while it waits, and for what is not a printer
        std::vector<ServiceToken> tokens;
        bool isConfigured = false;
        bool wasThereAtStart = false;
        bool isPrepared = false;
        bool isAnnounced = false;
        Clock::TimePoint announceBy;
        Clock::TimerId timer = 0;
    };

    IOReturn startSource();
    void waitForPreparations();
    bool isPreparing() const;
    void noteEnumerated();

    void drain();
    void handle(BusEvent& event);
    void arrived(BusEvent& event);
    void left(const DeviceKey& key);
    void prepared(const std::shared_ptr<Attachment>& attachment);
    void reenumerated(const std::shared_ptr<Attachment>& attachment);
    bool isReady(Entry& entry);
    void attachOrWait(const std::shared_ptr<Entry>& entry);
    void attach(const std::shared_ptr<Entry>& entry);
    void announce(const std::shared_ptr<Entry>& entry);
    void terminate(Entry& entry);
    bool isCurrent(const std::shared_ptr<Entry>& entry) const;
    std::shared_ptr<Entry> entryOf(const std::shared_ptr<Attachment>& attachment) const;

    ServiceRegistry& _registry;
    const std::shared_ptr<MainQueuePoster> _port;
    const std::shared_ptr<BusServices> _services;
    const std::shared_ptr<BusInbox> _inbox;
    const std::shared_ptr<ClockEvent> _prepared; // signalled after each preparation
    std::unique_ptr<DeviceSource> _source;
    bool _starting = false;
    bool _draining = false;
    std::map<DeviceKey, std::shared_ptr<Entry>> _entries;
    std::vector<std::shared_ptr<Entry>> _startOrder; // during the start: what is being prepared
    std::vector<Block> _enumerated;
};

} // namespace zul
