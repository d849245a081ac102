// Arrivals and departures found by listing all devices on the bus, whenever the kernel reports something about USB, or
// else every 2 s. For systems on which udevd does not run.
#pragma once

#include "platform/usb/IOReturn.h"
#include "usb/libusb/BusInbox.h"
#include "usb/libusb/BusServices.h"
#include "usb/libusb/DeviceSource.h"
#include "usb/libusb/LibusbBus.h"

#include <memory>

namespace zul {

class ScanSource final : public DeviceSource {
  public:
    /// Opens the socket of the kernel's reports, unless the options refuse it; starts no thread.
    ScanSource(std::shared_ptr<BusInbox> inbox, std::shared_ptr<BusServices> services);
    ~ScanSource() override { stop(); }
    IOReturn start() override;
    void stop() override;
    ArrivalSight sight() const override;

  private:
    struct State;
    const std::shared_ptr<State> _state; // shared with the thread that looks
};

} // namespace zul
