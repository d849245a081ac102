// Posting to the main queue until the port is closed. Called by sources, devices and handles on any thread; closed by
// the core on the main queue.
#include "usb/libusb/MainQueuePoster.h"

#include "platform/dispatch/Clock.h"

#include <mutex>
#include <utility>

namespace zul {

bool MainQueuePoster::post(Block block) {
    // Posting under the lock: once close() has returned, the queue is not touched again and may be destroyed.
    const std::scoped_lock lock(_mutex);
    if (!*_open) return false;
    _mainQueue.async([open = _open, block = std::move(block)] {
        if (*open) block();
    });
    return true;
}

void MainQueuePoster::close() {
    const std::scoped_lock lock(_mutex);
    *_open = false;
}

bool MainQueuePoster::isClosed() const {
    const std::scoped_lock lock(_mutex);
    return !*_open;
}

} // namespace zul
