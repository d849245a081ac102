// The owner of the running bus: a core exists from start() to stop(), and only this class starts and stops it. Main
// queue.
#include "usb/libusb/LibusbBus.h"

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/ServiceRegistry.h"
#include "usb/libusb/LibusbBusCore.h"
#include "usb/libusb/LibusbContext.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace zul {

LibusbBus::LibusbBus(MainQueue& mainQueue, Clock& clock, LibusbBusOptions options)
    : _mainQueue(mainQueue), _clock(clock), _options(std::move(options)) {}

LibusbBus::~LibusbBus() {
    stop();
}

IOReturn LibusbBus::start(ServiceRegistry& registry) {
    if (_core != nullptr) return kIOReturnSuccess;
    _core = std::make_shared<Core>(_mainQueue, _clock, registry, _options);
    const auto core = _core; // the bus may be stopped by what it announces
    const IOReturn code = core->start();
    if (code != kIOReturnSuccess) stop();
    return code;
}

void LibusbBus::stop() {
    if (_core != nullptr) _core->stop();
    _core = nullptr;
}

ArrivalSight LibusbBus::seesArrivals() const {
    return _core == nullptr ? ArrivalSight::no : _core->seesArrivals();
}

bool LibusbBus::hasPending() const {
    return _core != nullptr && _core->hasPending();
}

void LibusbBus::whenEnumerated(Block block) {
    if (_core != nullptr) {
        _core->whenEnumerated(std::move(block));
    } else {
        block();
    }
}

void LibusbBus::setKept(std::uint32_t locationID, bool kept) {
    if (_core != nullptr) _core->setKept(locationID, kept);
}

int LibusbBus::liveSessions() {
    return LibusbContext::live();
}

} // namespace zul
