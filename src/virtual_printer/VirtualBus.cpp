// The embedded bus: its ports, and the location of a new printer. Called by the session and by tests on the main queue;
// VirtualPort.cpp implements a port.
#include "virtual_printer/VirtualBus.h"

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/ServiceRegistry.h"
#include "virtual_printer/VirtualJournal.h"
#include "virtual_printer/VirtualPort.h"
#include "virtual_printer/VirtualPrinter.h"
#include "virtual_printer/VirtualPrinterSettings.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <utility>

namespace zul {

namespace {
constexpr std::uint8_t kFirstBus = 1;
constexpr std::uint8_t kFirstPort = 1;
constexpr std::uint8_t kLastPort = 15;
} // namespace

VirtualBus::VirtualBus(MainQueue& mainQueue, Clock& clock, std::shared_ptr<VirtualJournal> journal)
    : _mainQueue(mainQueue), _clock(clock), _journal(std::move(journal)) {}

VirtualBus::~VirtualBus() {
    stop();
}

std::size_t VirtualBus::add(const VirtualPrinterSettings& settings) {
    std::set<Location> taken;
    // Also of detached printers: they return to their own ports.
    for (const auto& port : _ports) taken.insert(port->location());
    const auto [bus, port] = settings.location ? *settings.location : firstFreeLocation(taken);
    _ports.push_back(std::make_shared<VirtualPort>(_mainQueue, _clock, _journal, settings, bus, port));
    // On a running bus a new printer arrives at once.
    if (_registry != nullptr) {
        _ports.back()->setRegistry(_registry);
        _ports.back()->attach();
    }
    return _ports.size() - 1;
}

// The ports of the first bus, then those of the next: a port number is one hexadecimal digit of the location.
VirtualBus::Location VirtualBus::firstFreeLocation(const std::set<Location>& taken) {
    Location place{kFirstBus, kFirstPort};
    while (taken.contains(place)) {
        if (place.second == kLastPort) ++place.first;
        place.second = place.second == kLastPort ? kFirstPort : static_cast<std::uint8_t>(place.second + 1);
    }
    return place;
}

void VirtualBus::unplug(std::size_t printer) {
    _ports.at(printer)->unplug();
}
void VirtualBus::plug(std::size_t printer) {
    _ports.at(printer)->attach();
}

void VirtualBus::setHeldByOther(std::size_t printer, bool isHeld) {
    _ports.at(printer)->setHeldByOther(isHeld);
}

void VirtualBus::inspect(std::size_t printer, const std::function<void(const VirtualPrinter&)>& inspect) {
    _ports.at(printer)->inspect(inspect);
}

IOReturn VirtualBus::start(ServiceRegistry& registry) {
    _registry = &registry;
    for (const auto& port : _ports) {
        port->setRegistry(_registry);
        port->attach();
    }
    return kIOReturnSuccess;
}

void VirtualBus::stop() {
    _registry = nullptr;
    for (const auto& port : _ports) port->setRegistry(nullptr);
}

} // namespace zul
