// The running bus, from its start to its stop: events of the source become services that come and go. Called by
// LibusbBus, and by what sources, timers and preparations post. Main queue only.
#include "usb/libusb/LibusbBusCore.h"

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "platform/usb/ServiceRegistry.h"
#include "usb/libusb/ArrivalPreparation.h"
#include "usb/libusb/AttachedDevice.h"
#include "usb/libusb/Attachment.h"
#include "usb/libusb/BusInbox.h"
#include "usb/libusb/BusLimits.h"
#include "usb/libusb/BusServices.h"
#include "usb/libusb/HotplugSource.h"
#include "usb/libusb/InterfaceDescriptors.h"
#include "usb/libusb/LibusbBus.h"
#include "usb/libusb/LibusbService.h"
#include "usb/libusb/MainQueuePoster.h"
#include "usb/libusb/NodeWatcher.h"
#include "usb/libusb/ScanSource.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace zul {

namespace {

bool mayBeOpened(const std::string& nodePath) {
    // Wait only for missing permissions; open() reports every other error.
    return ::access(nodePath.c_str(), R_OK | W_OK) == 0 || errno != EACCES;
}

std::shared_ptr<BusServices> makeServices(std::shared_ptr<MainQueuePoster> port, const LibusbBusOptions& options) {
    auto services = std::make_shared<BusServices>();
    services->port = std::move(port);
    services->nodeWatcher = std::make_shared<NodeWatcher>();
    services->options = options;
    return services;
}

} // namespace

LibusbBus::Core::Core(MainQueue& mainQueue, Clock& clock, ServiceRegistry& registry, const LibusbBusOptions& options)
    : _registry(registry), _port(std::make_shared<MainQueuePoster>(mainQueue, clock)),
      _services(makeServices(_port, options)), _inbox(std::make_shared<BusInbox>(_port)), _prepared(clock.makeEvent()) {
}

// ---- start and stop -------------------------------------------------------------------------------------------------

IOReturn LibusbBus::Core::startSource() {
    if (isUdevRunning(_services->options.system)) {
        _source = std::make_unique<HotplugSource>(_inbox);
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
    // By their places and not by the order of their answers: people name printers by their position in a list.
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
    // The port is closed first: from here on no event of a source, timer or preparation is handled.
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

// ---- events ---------------------------------------------------------------------------------------------------------

void LibusbBus::Core::drain() {
    // A callback below may run the main queue again. Events that come up then wait for their turn here, so that one is
    // handled completely before the next.
    if (_draining) return;
    _draining = true;
    const auto self = shared_from_this(); // the bus may be stopped by what it announces
    std::optional<BusEvent> event;
    while (!_port->isClosed() && _inbox->take(event) && event) handle(*event);
    _draining = false;
}

void LibusbBus::Core::handle(BusEvent& event) {
    switch (event.kind) {
    case BusEvent::Kind::arrived:
        arrived(event);
        break;
    case BusEvent::Kind::left:
        left(event.key);
        break;
    case BusEvent::Kind::prepared:
        prepared(event.attachment);
        break;
    case BusEvent::Kind::reenumerated:
        reenumerated(event.attachment);
        break;
    }
}

// ---- arrival --------------------------------------------------------------------------------------------------------

void LibusbBus::Core::arrived(BusEvent& event) {
    // A device that is there while the callback is registered may be reported by both.
    if (_entries.contains(event.key) || !event.device) return;
    const auto context = event.context != nullptr ? event.context : _source->context();
    const auto entry = std::make_shared<Entry>();
    entry->device = std::make_shared<AttachedDevice>(_services, context, event.device->get());
    entry->isConfigured = entry->device->readDescriptors(); // isKept() needs its place
    entry->announceBy =
        _port->clock().now() + (entry->device->isKept() ? bus_limits::kAccessWaitInUpdate : bus_limits::kAccessWait);
    entry->wasThereAtStart = _starting;
    // The permissions of what was attached before the start have long been set.
    if (!_starting) entry->device->rightsMayComeUntil(entry->announceBy);
    _entries[event.key] = entry;
    attachOrWait(entry);
}

bool LibusbBus::Core::isReady(Entry& entry) {
    if (!entry.isConfigured) entry.isConfigured = entry.device->readDescriptors();
    if (!entry.isConfigured) return false;
    // A device that is not a printer does not wait for permissions.
    if (entry.wasThereAtStart || entry.device->interfaces().empty()) return true;
    return mayBeOpened(entry.device->descriptors().nodePath());
}

void LibusbBus::Core::attachOrWait(const std::shared_ptr<Entry>& entry) {
    if (!isCurrent(entry)) return;
    Clock& clock = _port->clock();
    const Clock::TimePoint now = clock.now();
    const bool isOverdue = now >= entry->announceBy;
    // A device that is configured only later, by hand for example, has no interfaces before that: it is waited for.
    if (isReady(*entry) || (isOverdue && entry->isConfigured)) {
        attach(entry);
        return;
    }
    const auto at =
        isOverdue ? now + bus_limits::kAccessWait : std::min(now + bus_limits::kAccessRetryInterval, entry->announceBy);
    entry->timer = clock.callAt(at, [weak = weak_from_this(), waiting = std::weak_ptr<Entry>(entry), port = _port] {
        port->post([weak, waiting] {
            const auto self = weak.lock();
            const auto waited = waiting.lock();
            if (self != nullptr && waited != nullptr) self->attachOrWait(waited);
        });
    });
}

void LibusbBus::Core::attach(const std::shared_ptr<Entry>& entry) {
    auto attachment = std::make_shared<Attachment>();
    attachment->device = entry->device;
    attachment->reenumerated = [inbox = std::weak_ptr<BusInbox>(_inbox)](const std::shared_ptr<Attachment>& ended) {
        if (const auto box = inbox.lock()) box->add({BusEvent::Kind::reenumerated, {}, nullptr, std::nullopt, ended});
    };
    entry->attachment = attachment;
    entry->isPrepared = entry->isAnnounced = false;
    if (!wantsPreparation(*entry->device)) {
        announce(entry);
        return;
    }
    if (_starting) _startOrder.push_back(entry);
    _services->runApart([attachment, inbox = _inbox, done = _prepared] {
        prepareArrival(*attachment);
        inbox->add({BusEvent::Kind::prepared, {}, nullptr, std::nullopt, attachment});
        done->signal();
    });
}

void LibusbBus::Core::prepared(const std::shared_ptr<Attachment>& attachment) {
    const auto entry = entryOf(attachment);
    if (entry == nullptr || entry->isAnnounced) return; // it has left meanwhile
    entry->isPrepared = true;
    if (_starting) return; // start announces them in order
    announce(entry);
    noteEnumerated();
}

void LibusbBus::Core::announce(const std::shared_ptr<Entry>& entry) {
    entry->isAnnounced = true;
    const auto attachment = entry->attachment;
    // All are registered before the first is announced: an announcement may end the attachment, and the departure then
    // withdraws every one of them.
    for (const InterfaceDescriptors& interface : entry->device->interfaces()) {
        entry->tokens.push_back(_registry.add(std::make_shared<LibusbService>(attachment, interface)));
    }
    const auto tokens = entry->tokens;
    for (const ServiceToken token : tokens) {
        if (_port->isClosed() || attachment->gone) break;
        _registry.announce(token);
    }
    attachment->preparedConnection = nullptr; // a user of the printer has a handle by now
    if (!tokens.empty()) return;
    // Not a printer: only that it is there is remembered. The session in which it was found may end.
    entry->attachment = nullptr;
    entry->device = nullptr;
}

// ---- departure ------------------------------------------------------------------------------------------------------

void LibusbBus::Core::left(const DeviceKey& key) {
    const auto found = _entries.find(key);
    if (found == _entries.end()) return;
    const std::shared_ptr<Entry> entry = found->second;
    _entries.erase(found);
    _port->clock().cancel(entry->timer);
    if (entry->device != nullptr) entry->device->end();
    terminate(*entry);
    if (!_starting) noteEnumerated();
}

void LibusbBus::Core::reenumerated(const std::shared_ptr<Attachment>& attachment) {
    const auto entry = entryOf(attachment);
    if (entry == nullptr) return;
    entry->wasThereAtStart = false;
    terminate(*entry);
    if (!_port->isClosed()) attach(entry);
}

void LibusbBus::Core::terminate(Entry& entry) {
    if (entry.attachment != nullptr) entry.attachment->gone = true;
    std::vector<ServiceToken> tokens;
    tokens.swap(entry.tokens);
    for (const ServiceToken token : tokens) {
        if (_port->isClosed()) return;
        _registry.serviceTerminated(token);
    }
}

// ---- what is attached -----------------------------------------------------------------------------------------------

bool LibusbBus::Core::isCurrent(const std::shared_ptr<Entry>& entry) const {
    return std::ranges::any_of(_entries, [&](const auto& current) { return current.second == entry; });
}

std::shared_ptr<LibusbBus::Core::Entry> LibusbBus::Core::entryOf(const std::shared_ptr<Attachment>& attachment) const {
    const auto isIts = [&](const auto& current) { return current.second->attachment == attachment; };
    const auto found = std::ranges::find_if(_entries, isIts);
    return found == _entries.end() ? nullptr : found->second;
}

bool LibusbBus::Core::isPreparing() const {
    return std::ranges::any_of(_entries, [](const auto& current) {
        const Entry& entry = *current.second;
        return entry.attachment != nullptr && !entry.isPrepared && !entry.isAnnounced;
    });
}

bool LibusbBus::Core::hasPending() const {
    return std::ranges::any_of(_entries, [](const auto& current) {
        const Entry& entry = *current.second;
        return entry.wasThereAtStart && entry.attachment != nullptr && !entry.isAnnounced;
    });
}

void LibusbBus::Core::whenEnumerated(Block block) {
    _enumerated.push_back(std::move(block));
    noteEnumerated();
}

void LibusbBus::Core::noteEnumerated() {
    if (_starting || _enumerated.empty() || hasPending()) return;
    std::vector<Block> blocks;
    blocks.swap(_enumerated);
    for (const Block& block : blocks) {
        if (_port->isClosed()) return;
        block();
    }
}

void LibusbBus::Core::setKept(std::uint32_t locationID, bool kept) {
    const bool wasKept = _services->kept.contains(locationID);
    _services->kept.set(locationID, kept);
    if (kept || !wasKept) return;
    for (const auto& [key, entry] : _entries) {
        if (entry->device != nullptr && entry->device->descriptors().locationID() == locationID)
            entry->device->keptEnded();
    }
}

} // namespace zul
