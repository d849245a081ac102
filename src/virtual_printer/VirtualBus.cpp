#include "virtual_printer/VirtualBus.h"

#include "virtual_printer/VirtualPort.h"

#include <algorithm>

namespace zul {

namespace {
constexpr std::uint8_t kDefaultBus = 1;
}

VirtualBus::VirtualBus(MainQueue& mainQueue, Clock& clock, std::shared_ptr<VirtualJournal> journal)
    : _mainQueue(mainQueue), _clock(clock), _journal(std::move(journal)) {}

VirtualBus::~VirtualBus() {
    stop();
}

std::size_t VirtualBus::add(const VirtualPrinterSettings& settings) {
    const auto next = static_cast<std::uint8_t>(_ports.size() + 1);
    const auto [bus, port] = settings.location.value_or(std::pair{kDefaultBus, next});
    _ports.push_back(std::make_shared<VirtualPort>(_mainQueue, _clock, _journal, settings, bus, port));
    if (_registry != nullptr) {
        _ports.back()->setRegistry(_registry);
        _ports.back()->attach();
    }
    return _ports.size() - 1;
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
