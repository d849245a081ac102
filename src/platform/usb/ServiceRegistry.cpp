// The registry and its notification ports. Callbacks may add or remove registrations, so every loop runs over a copy.
// Called by the buses and the engine on the main queue; interests also on the printers' queues.
#include "platform/usb/ServiceRegistry.h"

#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace zul {

namespace {

bool matches(const ServiceMatching& matching, USBService& service) {
    std::uint8_t interfaceClass = 0;
    std::uint8_t interfaceSubClass = 0;
    // Announces a service whose class cannot be read: the controller then logs the reason.
    if (service.GetInterfaceClass(interfaceClass) != kIOReturnSuccess) return true;
    if (service.GetInterfaceSubClass(interfaceSubClass) != kIOReturnSuccess) return true;
    return interfaceClass == matching.bInterfaceClass && interfaceSubClass == matching.bInterfaceSubClass;
}

} // namespace

ServiceToken ServiceIterator::next() {
    if (_pending.empty()) {
        _armed = true;
        return 0;
    }
    const ServiceToken token = _pending.front();
    _pending.pop_front();
    return token;
}

NotificationPort::NotificationPort(ServiceRegistry& registry) : _registry(registry) {
    _registry._ports.push_back(this);
}

NotificationPort::~NotificationPort() {
    std::erase(_registry._ports, this);
}

std::shared_ptr<ServiceIterator> NotificationPort::addMatchingNotification(ServiceNotification kind,
                                                                           const ServiceMatching& matching,
                                                                           MatchCallback callback) {
    auto match =
        std::make_shared<Match>(Match{kind, matching, std::move(callback), std::make_shared<ServiceIterator>()});
    if (kind == ServiceNotification::matched) {
        for (const auto& [token, entry] : _registry._services) {
            if (entry.isAnnounced && matches(matching, *entry.service)) match->iterator->_pending.push_back(token);
        }
    }
    _matches.push_back(match);
    return match->iterator;
}

std::uint32_t InterestTable::add(ServiceToken service, const void* context, Callback callback) {
    const std::scoped_lock lock(_mutex);
    _interests.push_back({_nextInterest, service, context, std::move(callback)});
    return _nextInterest++;
}

bool InterestTable::remove(std::uint32_t interest) {
    const std::scoped_lock lock(_mutex);
    return std::erase_if(_interests, [&](const Interest& entry) { return entry.id == interest; }) > 0;
}

void InterestTable::deliver(ServiceToken service, IOMessage message, void* argument) {
    std::vector<Interest> interests;
    {
        const std::scoped_lock lock(_mutex);
        // A copy: a callback may register or unregister, on this thread or another one.
        interests = _interests;
    }
    // A printer registers when it is made and again on its command queue; it must handle each message once.
    std::vector<const void*> notified;
    for (const Interest& interest : interests) {
        if (interest.service != service || std::ranges::count(notified, interest.context) > 0) continue;
        notified.push_back(interest.context);
        interest.callback(service, message, argument);
    }
}

void NotificationPort::announce(ServiceNotification kind, ServiceToken token, USBService& service) {
    const auto registered = _matches;
    for (const auto& match : registered) {
        if (match->kind != kind || !matches(match->matching, service)) continue;
        match->iterator->_pending.push_back(token);
        // Not armed: the receiver is still reading the iterator and will find the token there.
        if (!match->iterator->_armed) continue;
        match->iterator->_armed = false;
        match->callback(*match->iterator);
    }
}

ServiceToken ServiceRegistry::add(std::shared_ptr<USBService> service) {
    // Never reused, so that a late event of a departed service cannot concern its successor.
    const ServiceToken token = _nextToken++;
    _services.emplace(token, Entry{std::move(service)});
    return token;
}

void ServiceRegistry::announce(ServiceToken token) {
    const auto found = _services.find(token);
    if (found == _services.end()) return;
    found->second.isAnnounced = true;
    const std::shared_ptr<USBService> service = found->second.service;
    const auto ports = _ports;
    for (NotificationPort* port : ports) {
        // A callback may destroy a port: notify only ports that are still registered.
        if (std::ranges::count(_ports, port) > 0) port->announce(ServiceNotification::matched, token, *service);
    }
}

ServiceToken ServiceRegistry::serviceArrived(std::shared_ptr<USBService> service) {
    const ServiceToken token = add(std::move(service));
    announce(token);
    return token;
}

void ServiceRegistry::serviceTerminated(ServiceToken token) {
    const auto found = _services.find(token);
    if (found == _services.end()) return;
    const std::shared_ptr<USBService> service = found->second.service;
    if (found->second.isAnnounced) {
        // Before the removal notifications: a printer keeps its device info for its successor, then the controller
        // retires it.
        serviceMessage(token, kIOMessageServiceIsTerminated, nullptr);
        const auto ports = _ports;
        for (NotificationPort* port : ports) {
            if (std::ranges::count(_ports, port) > 0) port->announce(ServiceNotification::terminated, token, *service);
        }
    }
    // By token, because a callback may have changed the map.
    _services.erase(token);
}

void ServiceRegistry::serviceMessage(ServiceToken token, IOMessage message, void* argument) {
    const auto ports = _ports;
    for (NotificationPort* port : ports) {
        if (std::ranges::count(_ports, port) > 0) port->interests()->deliver(token, message, argument);
    }
}

std::shared_ptr<USBService> ServiceRegistry::service(ServiceToken token) const {
    const auto found = _services.find(token);
    return found == _services.end() ? nullptr : found->second.service;
}

std::vector<ServiceToken> ServiceRegistry::services() const {
    std::vector<ServiceToken> tokens;
    for (const auto& [token, entry] : _services) {
        if (entry.isAnnounced) tokens.push_back(token);
    }
    return tokens;
}

} // namespace zul
