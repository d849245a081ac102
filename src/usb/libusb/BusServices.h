// The services and settings that all devices of one running bus share. Any thread.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/usb/PrinterReservations.h"
#include "usb/libusb/LibusbBus.h"
#include "usb/libusb/MainQueuePoster.h"
#include "usb/libusb/NodeWatcher.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace zul {

/// The locations at which an update is under way. Any thread.
class KeptLocations {
  public:
    /// Setting a location twice has no effect.
    void set(std::uint32_t locationID, bool kept) {
        const std::scoped_lock lock(_mutex);
        if (kept) {
            _locations.insert(locationID);
        } else {
            _locations.erase(locationID);
        }
    }
    /// Asked by devices on the printers' queues, set by the bus on main.
    bool contains(std::uint32_t locationID) const {
        const std::scoped_lock lock(_mutex);
        return _locations.contains(locationID);
    }
    /// At the end of the bus, so that handles which outlive it keep no claim.
    void clear() {
        const std::scoped_lock lock(_mutex);
        _locations.clear();
    }

  private:
    mutable std::mutex _mutex;
    std::set<std::uint32_t> _locations;
};

struct BusServices {
    std::shared_ptr<MainQueuePoster> port;
    std::shared_ptr<NodeWatcher> nodeWatcher;
    LibusbBusOptions options;
    KeptLocations kept;

    /// The clock of the bus; it outlives every handle.
    Clock& clock() const { return port->clock(); }
    /// Runs block soon on a thread of its own, for what may block longer than the main queue can wait. Any thread.
    void runApart(Block block) const;
};

/// The other process of ours that has reserved the device; nullopt if none has. Waits at most 300 ms for that process's
/// answer. Any thread.
std::optional<InterfaceHolder> reservationElsewhere(const BusServices& services, const std::string& deviceKey);

} // namespace zul
