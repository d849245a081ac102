// Where the bus learns of arrivals and departures from.
#pragma once

#include "platform/usb/IOReturn.h"
#include "usb/libusb/LibusbBus.h"
#include "usb/libusb/LibusbContext.h"

#include <memory>

namespace zul {

class DeviceSource {
  public:
    virtual ~DeviceSource() = default;
    /// What is attached is in the inbox when this returns; what happens later comes in on a thread of the source's.
    /// Main queue.
    virtual IOReturn start() = 0;
    /// No event is added to the inbox afterwards but one that is being added now. Does not wait. Main queue.
    virtual void stop() = 0;
    /// How well it sees, once it has started.
    virtual ArrivalSight sight() const = 0;
    /// The session of the devices whose events name none; null if there is none.
    virtual std::shared_ptr<LibusbContext> context() const { return nullptr; }
};

} // namespace zul
