// Arrivals and departures as libusb reports them; libusb gets them from udevd, and without udevd it reports none.
#pragma once

#include "platform/usb/IOReturn.h"
#include "usb/libusb/BusInbox.h"
#include "usb/libusb/DeviceSource.h"
#include "usb/libusb/LibusbBus.h"
#include "usb/libusb/LibusbContext.h"
#include "usb/libusb/SystemFolders.h"

#include <atomic>
#include <memory>
#include <utility>

namespace zul {

/// Whether udevd reports to this process: a process listens at its control socket in the folder of running services.
/// The file alone says little: it remains after an udevd that was killed, and in a container it may be that of the
/// machine, whose reports do not come in. The kernel's list of sockets has neither. Any thread.
bool isUdevRunning(const SystemFolders& folders);

class HotplugSource final : public DeviceSource {
  public:
    /// inbox: receives the events, and is kept until the libusb session has ended.
    explicit HotplugSource(std::shared_ptr<BusInbox> inbox) : _inbox(std::move(inbox)) {}
    ~HotplugSource() override { stop(); }
    IOReturn start() override;
    void stop() override;
    ArrivalSight sight() const override { return ArrivalSight::byUdev; }
    std::shared_ptr<LibusbContext> context() const override { return _context; }

  private:
    const std::shared_ptr<BusInbox> _inbox;
    std::shared_ptr<LibusbContext> _context;                                                // null while stopped
    std::shared_ptr<std::atomic<bool>> _ended = std::make_shared<std::atomic<bool>>(false); // for the event thread
    int _callback = 0;
};

} // namespace zul
