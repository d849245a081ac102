// Waiting for another program to release a printer: reported by closes of its nodes and by the reservations of our own
// programs, and by a slow clock for holders that keep the node open.
#pragma once

#include "platform/dispatch/Clock.h"
#include "usb/libusb/AttachedDevice.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace zul {

/// One watch, from begin() until its end(). This program keeps its own node open meanwhile and opens it only once, so
/// no close of its own can be taken for that of another program.
class HolderWatch : public std::enable_shared_from_this<HolderWatch> {
  public:
    /// mayBeFree runs on the main queue until end(). Any thread.
    static std::shared_ptr<HolderWatch> begin(std::shared_ptr<AttachedDevice> device, std::uint8_t interface,
                                              std::function<void()> mayBeFree);
    ~HolderWatch() { end(); }
    /// Afterwards mayBeFree is not called again; from another thread than main a call under way is not waited for.
    void end();

  private:
    HolderWatch(std::shared_ptr<AttachedDevice> device, std::uint8_t interface, std::function<void()> mayBeFree);
    std::uint64_t watchNode(const std::string& path);
    void watchDriverNode();
    void watchReservation();
    Block hint();
    void report();
    void armTimer();

    const std::shared_ptr<AttachedDevice> _device;
    const std::uint8_t _interface;
    std::mutex _mutex;
    std::function<void()> _mayBeFree; // null once ended
    std::uint64_t _nodeWatch = 0;
    std::string _driverNode; // the kernel's printer driver's, as far as it has one
    std::uint64_t _driverWatch = 0;
    std::shared_ptr<void> _reservationWatch;
    Clock::TimerId _timer = 0;
};

} // namespace zul
