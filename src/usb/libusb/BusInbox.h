// The events of the bus that are not handled yet: added on any thread, taken one by one on the main queue.
#pragma once

#include "platform/dispatch/Clock.h"
#include "usb/libusb/Attachment.h"
#include "usb/libusb/InterfaceDescriptors.h"
#include "usb/libusb/LibusbContext.h"
#include "usb/libusb/MainQueuePoster.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace zul {

/// Bus number and address: different for any two devices that are attached at the same time.
using DeviceKey = std::pair<std::uint8_t, std::uint8_t>;
/// Answered from libusb's memory, also after the device has left. Any thread.
DeviceKey keyOf(libusb_device* device);

/// One event; only the members named for its kind are set.
struct BusEvent {
    enum class Kind { arrived, left, prepared, reenumerated };
    Kind kind;
    DeviceKey key{};                        // arrived, left
    std::shared_ptr<LibusbContext> context; // arrived; null: the hot-plug session's own
    std::optional<DeviceReference> device;  // arrived; before its session at the end
    std::shared_ptr<Attachment> attachment; // prepared, reenumerated
};

/// Outlives the bus inside the libusb session, because a hot-plug callback may run at any time until the session ends.
class BusInbox {
  public:
    /// port: the way to the main queue; its closing ends the inbox.
    explicit BusInbox(std::shared_ptr<MainQueuePoster> port) : _port(std::move(port)) {}
    /// What runs on main whenever events wait. Before the first event.
    void setReader(Block reader) { _reader = std::move(reader); }
    /// Any thread; the reader runs on the main queue afterwards. Dropped once the port is closed.
    void add(BusEvent event);
    /// The oldest event; false when there is none. Main queue.
    bool take(std::optional<BusEvent>& event);
    /// Drops all events. Any thread.
    void clear();

  private:
    const std::shared_ptr<MainQueuePoster> _port;
    Block _reader;
    std::mutex _mutex;
    std::deque<BusEvent> _events;
};

} // namespace zul
