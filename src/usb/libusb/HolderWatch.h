// Waiting for another program to let go of a printer: told by closes of the device node, and by a slow clock for
// holders that keep the node open.
#pragma once

#include "usb/libusb/MainPort.h"
#include "usb/libusb/NodeWatcher.h"

#include <mutex>
#include <string>

namespace zul {

/// One watch, from begin() until its end(). This program keeps its own node open all the while and opens it only once,
/// so no close of its own can be taken for another's.
class HolderWatch : public std::enable_shared_from_this<HolderWatch> {
  public:
    /// mayBeFree runs on the main queue until end(). Any thread.
    static std::shared_ptr<HolderWatch> begin(std::shared_ptr<MainPort> port, std::shared_ptr<NodeWatcher> nodeWatcher,
                                              const std::string& nodePath, std::function<void()> mayBeFree);
    ~HolderWatch() { end(); }
    /// Afterwards mayBeFree is not called again; from another thread than main a call under way is not waited for.
    void end();

  private:
    HolderWatch(std::shared_ptr<MainPort> port, std::shared_ptr<NodeWatcher> nodeWatcher,
                std::function<void()> mayBeFree);
    void tell();
    void armTimer();

    const std::shared_ptr<MainPort> _port;
    const std::shared_ptr<NodeWatcher> _nodeWatcher;
    std::mutex _mutex;
    std::function<void()> _mayBeFree; // null once ended
    std::uint64_t _nodeWatch = 0;
    Clock::TimerId _timer = 0;
};

} // namespace zul
