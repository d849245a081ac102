// The source of a bus's arrivals and departures. Used by the core on the main queue.
#pragma once

#include "platform/usb/IOReturn.h"
#include "usb/libusb/LibusbBus.h"
#include "usb/libusb/LibusbContext.h"

#include <memory>

namespace zul {

class DeviceSource {
  public:
    virtual ~DeviceSource() = default;
    /// The attached devices are in the inbox when this returns; later events are added on a thread of the source.
    /// kIOReturnError or the library's code if the source cannot run. Main queue.
    virtual IOReturn start() = 0;
    /// No event is added to the inbox afterwards but one that is being added now. Does not wait. Main queue.
    virtual void stop() = 0;
    /// How it detects arrivals, once it has started.
    virtual ArrivalSight sight() const = 0;
    /// The session of the devices whose events name none; null if there is none.
    virtual std::shared_ptr<LibusbContext> context() const { return nullptr; }
};

} // namespace zul
