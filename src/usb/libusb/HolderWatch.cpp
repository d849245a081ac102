#include "usb/libusb/HolderWatch.h"

#include "usb/libusb/BusLimits.h"

namespace zul {

HolderWatch::HolderWatch(std::shared_ptr<MainPort> port, std::shared_ptr<NodeWatcher> nodeWatcher,
                         std::function<void()> mayBeFree)
    : _port(std::move(port)), _nodeWatcher(std::move(nodeWatcher)), _mayBeFree(std::move(mayBeFree)) {}

std::shared_ptr<HolderWatch> HolderWatch::begin(std::shared_ptr<MainPort> port,
                                                std::shared_ptr<NodeWatcher> nodeWatcher, const std::string& nodePath,
                                                std::function<void()> mayBeFree) {
    std::shared_ptr<HolderWatch> watch(new HolderWatch(std::move(port), std::move(nodeWatcher), std::move(mayBeFree)));
    const std::weak_ptr<HolderWatch> weak = watch;
    // A refused watch is no failure: the clock still asks.
    watch->_nodeWatch = watch->_nodeWatcher->add(nodePath, [weak, port = watch->_port] {
        port->post([weak] {
            if (const auto self = weak.lock()) self->tell();
        });
    });
    watch->armTimer();
    return watch;
}

void HolderWatch::end() {
    std::function<void()> dropped; // destroyed after the lock: what it holds may come back here
    const std::scoped_lock lock(_mutex);
    if (_mayBeFree == nullptr) return;
    dropped.swap(_mayBeFree);
    _nodeWatcher->remove(_nodeWatch);
    _port->clock().cancel(_timer);
}

void HolderWatch::tell() {
    std::function<void()> mayBeFree;
    {
        const std::scoped_lock lock(_mutex);
        mayBeFree = _mayBeFree;
    }
    if (mayBeFree != nullptr) mayBeFree();
}

void HolderWatch::armTimer() {
    const std::scoped_lock lock(_mutex);
    if (_mayBeFree == nullptr) return;
    Clock& clock = _port->clock();
    _timer = clock.callAt(clock.now() + bus_limits::kHolderPollInterval, [weak = weak_from_this(), port = _port] {
        port->post([weak] {
            const auto self = weak.lock();
            if (self == nullptr) return;
            self->tell();
            self->armTimer();
        });
    });
}

} // namespace zul
