// What the bus makes of events: services that come and go. Main queue only, but for the inbox.
#include "usb/libusb/LibusbBusCore.h"

#include "usb/libusb/BusLimits.h"
#include "usb/libusb/LibusbInterface.h"

#include <libusb.h>
#include <unistd.h>

namespace zul {

namespace {

class LibusbService final : public DescribedInterface<USBService> {
  public:
    LibusbService(std::shared_ptr<Attachment> attachment, const InterfaceFacts& facts)
        : DescribedInterface(attachment->device->facts(), facts), _attachment(std::move(attachment)) {}

    IOReturn createInterfaceInterface(std::shared_ptr<IOUSBInterfaceInterface>& interfaceInterface) override {
        interfaceInterface = nullptr;
        if (_attachment->gone) return kIOReturnNoDevice;
        std::shared_ptr<DeviceConnection> connection;
        const IOReturn code = _attachment->device->connect(connection);
        if (code != kIOReturnSuccess) return code;
        interfaceInterface = std::make_shared<LibusbInterface>(_attachment, std::move(connection), _facts);
        return kIOReturnSuccess;
    }
    std::string locationText() const override { return _deviceFacts.locationText(); }
    std::string nodePath() const override { return _deviceFacts.nodePath(); }
    bool isVirtual() const override { return false; }

  private:
    const std::shared_ptr<Attachment> _attachment;
};

bool mayBeOpened(const std::string& nodePath) {
    // Only missing rights are waited for; of anything else the opening will tell.
    return ::access(nodePath.c_str(), R_OK | W_OK) == 0 || errno != EACCES;
}

} // namespace

void BusInbox::add(Event event) {
    {
        const std::scoped_lock lock(_mutex);
        if (_port->isClosed()) return;
        _events.push_back(std::move(event));
    }
    // Shut meanwhile: nobody reads any more, and what the events hold must not outlive the session.
    if (!_port->post(_reader)) clear();
}

bool BusInbox::take(std::optional<Event>& event) {
    event.reset();
    const std::scoped_lock lock(_mutex);
    if (_events.empty()) return false;
    event.emplace(std::move(_events.front()));
    _events.pop_front();
    return true;
}

void BusInbox::clear() {
    const std::scoped_lock lock(_mutex);
    _events.clear();
}

LibusbBus::Core::Core(MainQueue& mainQueue, Clock& clock, ServiceRegistry& registry)
    : _registry(registry), _port(std::make_shared<MainPort>(mainQueue, clock)),
      _inbox(std::make_shared<BusInbox>(_port)) {}

void LibusbBus::Core::drain() {
    // A callback below may run the main queue again. Events that come up then wait for their turn here, so that one is
    // handled completely before the next.
    if (_draining) return;
    _draining = true;
    const auto self = shared_from_this(); // the bus may be stopped by what it announces
    std::optional<BusInbox::Event> event;
    while (!_port->isClosed() && _inbox->take(event)) {
        switch (event->kind) {
        case BusInbox::Event::Kind::arrived:
            arrived(event->device->get());
            break;
        case BusInbox::Event::Kind::left:
            left(event->device->get());
            break;
        case BusInbox::Event::Kind::reenumerated:
            reenumerated(event->attachment);
            break;
        }
    }
    _draining = false;
}

void LibusbBus::Core::arrived(libusb_device* device) {
    const Key key{libusb_get_bus_number(device), libusb_get_device_address(device)};
    // A device that is there while the callback is registered may be reported by both.
    if (_entries.contains(key)) return;
    const auto entry = std::make_shared<Entry>();
    entry->device = std::make_shared<AttachedDevice>(_context, device);
    entry->announceBy = _port->clock().now() + bus_limits::kAccessWait;
    _entries[key] = entry;
    announceOrWait(entry);
}

bool LibusbBus::Core::isReady(Entry& entry) {
    if (!entry.isConfigured) entry.isConfigured = entry.device->readDescriptors();
    if (!entry.isConfigured) return false;
    // What was attached before the start has long had its rights set; and what is no printer waits for none.
    if (_starting || entry.device->interfaces().empty()) return true;
    return mayBeOpened(entry.device->facts().nodePath());
}

void LibusbBus::Core::announceOrWait(const std::shared_ptr<Entry>& entry) {
    if (!isCurrent(entry)) return;
    Clock& clock = _port->clock();
    const Clock::TimePoint now = clock.now();
    const bool isOverdue = now >= entry->announceBy;
    // A device that is configured only later, by hand for example, is nothing before: there is nothing to announce.
    if (isReady(*entry) || (isOverdue && entry->isConfigured)) {
        announce(entry);
        return;
    }
    const auto at =
        isOverdue ? now + bus_limits::kAccessWait : std::min(now + bus_limits::kAccessRetryInterval, entry->announceBy);
    entry->timer = clock.callAt(at, [weak = weak_from_this(), waiting = std::weak_ptr<Entry>(entry), port = _port] {
        port->post([weak, waiting] {
            const auto self = weak.lock();
            const auto waited = waiting.lock();
            if (self != nullptr && waited != nullptr) self->announceOrWait(waited);
        });
    });
}

void LibusbBus::Core::announce(const std::shared_ptr<Entry>& entry) {
    auto attachment = std::make_shared<Attachment>();
    attachment->device = entry->device;
    attachment->port = _port;
    attachment->nodeWatcher = _nodeWatcher;
    attachment->reenumerated = [inbox = std::weak_ptr<BusInbox>(_inbox)](const std::shared_ptr<Attachment>& ended) {
        if (const auto box = inbox.lock()) box->add({BusInbox::Event::Kind::reenumerated, std::nullopt, ended});
    };
    entry->attachment = attachment;
    for (const InterfaceFacts& facts : entry->device->interfaces()) {
        if (_port->isClosed()) return;
        entry->tokens.push_back(_registry.serviceArrived(std::make_shared<LibusbService>(attachment, facts)));
    }
}

void LibusbBus::Core::left(libusb_device* device) {
    const auto found = _entries.find({libusb_get_bus_number(device), libusb_get_device_address(device)});
    if (found == _entries.end()) return;
    const std::shared_ptr<Entry> entry = found->second;
    _entries.erase(found);
    _port->clock().cancel(entry->timer);
    entry->device->left = true;
    terminate(*entry);
}

void LibusbBus::Core::reenumerated(const std::shared_ptr<Attachment>& attachment) {
    for (const auto& [key, candidate] : _entries) {
        if (candidate->attachment != attachment) continue;
        const std::shared_ptr<Entry> entry = candidate;
        terminate(*entry);
        if (_port->isClosed()) return;
        announce(entry);
        // Whoever wants the printer has a handle by now.
        entry->device->restartExpected = false;
        return;
    }
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

bool LibusbBus::Core::isCurrent(const std::shared_ptr<Entry>& entry) const {
    for (const auto& [key, current] : _entries) {
        if (current == entry) return true;
    }
    return false;
}

void LibusbBus::Core::setRestartExpected(std::uint32_t locationID, bool expected) {
    for (const auto& [key, entry] : _entries) {
        if (entry->device->facts().locationID() == locationID) entry->device->restartExpected = expected;
    }
}

} // namespace zul
