// Start and stop of the real bus. What the events mean is in LibusbBusCore.cpp.
#include "usb/libusb/LibusbBus.h"

#include "usb/libusb/HotplugSource.h"
#include "usb/libusb/LibusbBusCore.h"
#include "usb/libusb/ScanSource.h"

#include <algorithm>

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

IOReturn LibusbBus::Core::startSource() {
    if (isUdevRunning(_services->options.system)) {
        _source = std::make_unique<HotplugSource>(_inbox, _services->options.libusbDebug);
        if (_source->start() == kIOReturnSuccess) return kIOReturnSuccess;
        _source->stop();
        _inbox->clear();
    }
    _source = std::make_unique<ScanSource>(_inbox, _services);
    return _source->start();
}

IOReturn LibusbBus::Core::start() {
    _inbox->setReader([weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->drain();
    });
    if (const IOReturn code = startSource(); code != kIOReturnSuccess) return code;
    _starting = true;
    drain();
    waitForPreparations();
    // By their places, whoever answered first: people name printers by their position in a list.
    auto inOrder = std::move(_startOrder);
    std::ranges::sort(inOrder, {}, [](const auto& entry) { return entry->device->descriptors().locationID(); });
    for (const auto& entry : inOrder) {
        if (_port->isClosed()) break;
        if (entry->isPrepared && isCurrent(entry)) announce(entry);
    }
    _starting = false;
    noteEnumerated();
    return kIOReturnSuccess;
}

void LibusbBus::Core::waitForPreparations() {
    const Clock::TimePoint deadline = _port->clock().now() + bus_limits::kStartWait;
    while (!_port->isClosed() && isPreparing() && _prepared->waitUntil(deadline)) drain();
    if (!_port->isClosed()) drain();
}

void LibusbBus::Core::stop() {
    _port->close();
    if (_source != nullptr) _source->stop();
    _services->kept.clear();
    for (const auto& [key, entry] : _entries) {
        _port->clock().cancel(entry->timer);
        if (entry->device != nullptr) entry->device->giveBackNow();
    }
    _entries.clear();
    _startOrder.clear();
    _enumerated.clear();
    _inbox->clear();
}

} // namespace zul
