// Arrivals, departures and claims of one port. Called by the bus on the main queue and by the handles on the printers'
// command queues. Transfers are in VirtualPort_Transfers.cpp.
#include "virtual_printer/VirtualPort.h"

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/usb/DescribedInterface.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "platform/usb/ServiceRegistry.h"
#include "virtual_printer/VirtualDescriptors.h"
#include "virtual_printer/VirtualHandles.h"
#include "virtual_printer/VirtualJournal.h"
#include "virtual_printer/VirtualPrinter.h"
#include "virtual_printer/VirtualPrinterSettings.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zul {

VirtualPort::VirtualPort(MainQueue& mainQueue, Clock& clock, std::shared_ptr<VirtualJournal> journal,
                         VirtualPrinterSettings printerSettings, std::uint8_t bus, std::uint8_t port)
    : settings(std::move(printerSettings)), _mainQueue(mainQueue), _clock(clock), _journal(std::move(journal)),
      _printer(settings,
               [this](const VirtualCommand& command) {
                   VirtualJournalEntry entry;
                   entry.printer = settings.serial;
                   entry.event = "command";
                   entry.command = command.text;
                   entry.header = command.header;
                   entry.length = static_cast<std::uint32_t>(command.payload.size());
                   if (!command.payload.empty()) entry.sha256 = sha256Of(command.payload);
                   _journal->add(std::move(entry));
               }),
      _bus(bus), _port(port) {}

std::uint32_t VirtualPort::locationID() const {
    return static_cast<std::uint32_t>(_bus) << 24 | static_cast<std::uint32_t>(_port.load()) << 20;
}

std::string VirtualPort::locationText() const {
    return std::to_string(_bus) + '-' + std::to_string(_port.load());
}

void VirtualPort::journal(const char* event, const std::string& command, std::uint32_t length,
                          const std::string& result) {
    VirtualJournalEntry entry;
    entry.printer = settings.serial;
    entry.event = event;
    entry.command = command;
    entry.length = length;
    entry.result = result;
    _journal->add(std::move(entry));
}

void VirtualPort::inspect(const std::function<void(const VirtualPrinter&)>& inspect) {
    const std::scoped_lock lock(_mutex);
    inspect(_printer);
}

// ---- arrival and departure ------------------------------------------------------------------------------------------

void VirtualPort::setRegistry(ServiceRegistry* registry) {
    _registry = registry;
    const std::scoped_lock lock(_postMutex);
    _mayPost = registry != nullptr;
}

// Timers outlive the bus, but the main queue may not.
void VirtualPort::post(Block block) {
    const std::scoped_lock lock(_postMutex);
    if (_mayPost) _mainQueue.async(std::move(block));
}

void VirtualPort::attach() {
    if (_registry == nullptr || _attachment != nullptr) return;
    ++_attachCount;
    auto attachment = std::make_shared<VirtualAttachment>();
    attachment->endpointPairs.resize(static_cast<std::size_t>(settings.interfaces));
    for (VirtualEndpointPair& endpoints : attachment->endpointPairs) endpoints.changed = _clock.makeEvent();
    std::optional<VirtualDeparture> restartsByItself;
    std::vector<DescriptorValues> interfaces;
    {
        const std::scoped_lock lock(_mutex);
        _printer.attach();
        restartsByItself = _printer.departureAfterAttach();
        for (int number = 0; number < settings.interfaces; ++number) {
            interfaces.push_back(descriptorValues(_printer, locationID(), static_cast<std::uint8_t>(number)));
        }
    }
    _attachment = attachment;
    // Plugged in by hand or back from a restart: from here on restarts bring it back again.
    _isPulled = false;
    journal("arrive");
    // Registers all interfaces before announcing the first, because a callback may unplug the printer.
    for (DescriptorValues& descriptors : interfaces) {
        attachment->tokens.push_back(
            _registry->add(std::make_shared<VirtualService>(shared_from_this(), attachment, std::move(descriptors))));
    }
    for (const ServiceToken token : attachment->tokens) {
        if (_registry != nullptr && !attachment->isGone) _registry->announce(token);
    }
    if (restartsByItself) schedule(*restartsByItself, attachment);
}

void VirtualPort::unplug() {
    _isPulled = true;
    if (_attachment == nullptr) return;
    VirtualDeparture departure;
    departure.comesBack = false;
    depart(_attachment, departure);
}

// Call with the lock held.
void VirtualPort::endForHandles(VirtualAttachment& attachment) {
    // A departure may be noticed twice: by the write that causes it, and on the main queue.
    if (attachment.isGone.exchange(true)) return;
    _printer.reset();
    // A read that waits for a reply must end now.
    for (const VirtualEndpointPair& endpoints : attachment.endpointPairs) endpoints.changed->signal();
}

void VirtualPort::leave(const std::shared_ptr<VirtualAttachment>& attachment, const VirtualDeparture& departure) {
    {
        const std::scoped_lock lock(_mutex);
        if (attachment->isGone) return;
        endForHandles(*attachment);
    }
    post([self = shared_from_this(), attachment, departure] { self->depart(attachment, departure); });
}

void VirtualPort::depart(std::shared_ptr<VirtualAttachment> attachment, const VirtualDeparture& departure) {
    if (_attachment != attachment) return; // already detached
    std::map<const void*, std::function<void()>>
        watches; // destroyed after unlocking: their destruction may call the port
    {
        const std::scoped_lock lock(_mutex);
        endForHandles(*attachment);
        watches.swap(attachment->holderWatches);
    }
    _attachment = nullptr;
    journal("leave");
    if (departure.comesBack) {
        if (departure.elsewhere) _port = static_cast<std::uint8_t>(_port % 15 + 1);
        _clock.callAt(_clock.now() + departure.away, [self = shared_from_this(), attachCount = _attachCount] {
            // A return that was scheduled before the printer was unplugged or plugged by hand must not happen.
            self->post([self, attachCount] {
                if (!self->_isPulled && self->_attachCount == attachCount) self->attach();
            });
        });
    }
    if (_registry == nullptr) return;
    for (const ServiceToken token : attachment->tokens) _registry->serviceTerminated(token);
}

void VirtualPort::schedule(VirtualDeparture departure, const std::shared_ptr<VirtualAttachment>& attachment) {
    if (departure.after.count() == 0) {
        leave(attachment, departure);
        return;
    }
    _clock.callAt(_clock.now() + departure.after,
                  [self = shared_from_this(), attachment, departure] { self->leave(attachment, departure); });
}

// ---- claims ---------------------------------------------------------------------------------------------------------

IOReturn VirtualPort::claim(VirtualAttachment& attachment, std::uint8_t number, const void* owner) {
    VirtualEndpointPair& endpoints = attachment.endpointPairs.at(number);
    std::optional<std::chrono::milliseconds> hold;
    bool refused = false;
    {
        const std::scoped_lock lock(_mutex);
        if (attachment.isGone) return kIOReturnNoDevice;
        if (endpoints.owner == owner) return kIOReturnSuccess;
        // Asked under the lock, because it counts the opens of both interfaces.
        hold = _printer.holderAtOpen();
        if (hold) ++_heldByOther;
        refused = _heldByOther > 0 || endpoints.owner != nullptr;
        if (!refused) endpoints.owner = owner;
    }
    if (hold) holdFor(*hold);
    journal(refused ? "refuse" : "open");
    return refused ? kIOReturnExclusiveAccess : kIOReturnSuccess;
}

IOReturn VirtualPort::release(VirtualAttachment& attachment, std::uint8_t number, const void* owner) {
    VirtualEndpointPair& endpoints = attachment.endpointPairs.at(number);
    {
        const std::scoped_lock lock(_mutex);
        if (endpoints.owner != owner) return attachment.isGone ? kIOReturnNoDevice : kIOReturnError;
        endpoints.owner = nullptr;
        if (attachment.isGone) return kIOReturnNoDevice;
    }
    journal("close");
    return kIOReturnSuccess;
}

bool VirtualPort::isFree(const VirtualAttachment& attachment, std::uint8_t number, const void* owner) {
    const std::scoped_lock lock(_mutex);
    return isFreeLocked(attachment, number, owner);
}

bool VirtualPort::isHeldByOther() {
    const std::scoped_lock lock(_mutex);
    return _heldByOther > 0;
}

bool VirtualPort::isFreeLocked(const VirtualAttachment& attachment, std::uint8_t number, const void* owner) const {
    const void* const holder = attachment.endpointPairs.at(number).owner;
    return !attachment.isGone && _heldByOther == 0 && (holder == nullptr || holder == owner);
}

void VirtualPort::watchHolder(VirtualAttachment& attachment, std::uint8_t number, const void* owner,
                              std::function<void()> mayBeFree) {
    std::function<void()> dropped; // destroyed after unlocking: its destruction may call the port
    bool isFreeAlready = false;
    {
        const std::scoped_lock lock(_mutex);
        auto& watch = attachment.holderWatches[owner];
        dropped.swap(watch);
        if (mayBeFree && !attachment.isGone) {
            watch = std::move(mayBeFree);
            isFreeAlready = isFreeLocked(attachment, number, owner);
        } else {
            attachment.holderWatches.erase(owner);
        }
    }
    // The printer may have been released between the refused claim and this watch, and no other event would report
    // that.
    if (isFreeAlready) post([self = shared_from_this(), owner] { self->notifyWatch(owner); });
}

void VirtualPort::notifyWatch(const void* owner) {
    std::function<void()> watch;
    {
        const std::scoped_lock lock(_mutex);
        if (_attachment == nullptr) return;
        const auto found = _attachment->holderWatches.find(owner);
        if (found != _attachment->holderWatches.end()) watch = found->second; // otherwise the watch has ended meanwhile
    }
    if (watch) watch();
}

void VirtualPort::holdFor(std::chrono::milliseconds time) {
    _clock.callAt(_clock.now() + time,
                  [self = shared_from_this()] { self->post([self] { self->setHeldByOther(false); }); });
}

void VirtualPort::setHeldByOther(bool isHeld) {
    std::vector<std::function<void()>> watches;
    {
        const std::scoped_lock lock(_mutex);
        _heldByOther = std::max(0, _heldByOther + (isHeld ? 1 : -1));
        if (_heldByOther > 0 || _attachment == nullptr) return;
        for (const auto& [watcher, watch] : _attachment->holderWatches) watches.push_back(watch);
    }
    for (const auto& watch : watches) watch();
}

} // namespace zul
