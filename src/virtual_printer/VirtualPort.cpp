// Arrivals, departures and claims. Transfers are in VirtualPort_Transfers.cpp.
#include "virtual_printer/VirtualPort.h"

#include "virtual_printer/VirtualHandles.h"

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

// ---- coming and going -----------------------------------------------------------------------------------------------

void VirtualPort::setRegistry(ServiceRegistry* registry) {
    _registry = registry;
    const std::scoped_lock lock(_postMutex);
    _mayPost = registry != nullptr;
}

// Timers outlive the bus; the main queue need not.
void VirtualPort::post(Block block) {
    const std::scoped_lock lock(_postMutex);
    if (_mayPost) _mainQueue.async(std::move(block));
}

void VirtualPort::attach() {
    if (_registry == nullptr || _stay != nullptr) return;
    ++_comings;
    auto stay = std::make_shared<VirtualStay>();
    stay->lanes.resize(static_cast<std::size_t>(settings.interfaces));
    for (VirtualLane& lane : stay->lanes) lane.changed = _clock.makeEvent();
    std::optional<VirtualDeparture> restartsByItself;
    {
        const std::scoped_lock lock(_mutex);
        _printer.attach();
        restartsByItself = _printer.departureAfterAttach();
    }
    _stay = stay;
    _isPulled = false;
    journal("arrive");
    for (int number = 0; number < settings.interfaces; ++number) {
        stay->tokens.push_back(_registry->serviceArrived(
            std::make_shared<VirtualService>(shared_from_this(), stay, static_cast<std::uint8_t>(number))));
    }
    if (restartsByItself) schedule(*restartsByItself, stay);
}

void VirtualPort::unplug() {
    _isPulled = true;
    if (_stay == nullptr) return;
    VirtualDeparture departure;
    departure.comesBack = false;
    depart(_stay, departure);
}

// With the lock held.
void VirtualPort::endForHandles(VirtualStay& stay) {
    if (stay.isGone.exchange(true)) return;
    _printer.reset();
    for (const VirtualLane& lane : stay.lanes) lane.changed->signal();
}

void VirtualPort::leave(const std::shared_ptr<VirtualStay>& stay, const VirtualDeparture& departure) {
    {
        const std::scoped_lock lock(_mutex);
        if (stay->isGone) return;
        endForHandles(*stay);
    }
    post([self = shared_from_this(), stay, departure] { self->depart(stay, departure); });
}

void VirtualPort::depart(std::shared_ptr<VirtualStay> stay, const VirtualDeparture& departure) {
    if (_stay != stay) return;                            // it has left already
    std::map<const void*, std::function<void()>> watches; // destroyed after the lock: what they hold may come back here
    {
        const std::scoped_lock lock(_mutex);
        endForHandles(*stay);
        watches.swap(stay->holderWatches);
    }
    _stay = nullptr;
    journal("leave");
    if (departure.comesBack) {
        if (departure.elsewhere) _port = static_cast<std::uint8_t>(_port % 15 + 1);
        _clock.callAt(_clock.now() + departure.away, [self = shared_from_this(), comings = _comings] {
            self->post([self, comings] {
                if (!self->_isPulled && self->_comings == comings) self->attach();
            });
        });
    }
    if (_registry == nullptr) return;
    for (const ServiceToken token : stay->tokens) _registry->serviceTerminated(token);
}

void VirtualPort::schedule(VirtualDeparture departure, const std::shared_ptr<VirtualStay>& stay) {
    if (departure.after.count() == 0) {
        leave(stay, departure);
        return;
    }
    _clock.callAt(_clock.now() + departure.after,
                  [self = shared_from_this(), stay, departure] { self->leave(stay, departure); });
}

// ---- claims ---------------------------------------------------------------------------------------------------------

IOReturn VirtualPort::claim(VirtualStay& stay, std::uint8_t number, const void* owner) {
    VirtualLane& lane = stay.lanes.at(number);
    std::optional<std::chrono::milliseconds> hold;
    bool refused = false;
    {
        const std::scoped_lock lock(_mutex);
        if (stay.isGone) return kIOReturnNoDevice;
        if (lane.owner == owner) return kIOReturnSuccess;
        hold = _printer.holderAtOpen();
        if (hold) ++_heldByOther;
        refused = _heldByOther > 0 || lane.owner != nullptr;
        if (!refused) lane.owner = owner;
    }
    if (hold) holdFor(*hold);
    journal(refused ? "refuse" : "open");
    return refused ? kIOReturnExclusiveAccess : kIOReturnSuccess;
}

IOReturn VirtualPort::release(VirtualStay& stay, std::uint8_t number, const void* owner) {
    VirtualLane& lane = stay.lanes.at(number);
    {
        const std::scoped_lock lock(_mutex);
        if (lane.owner != owner) return stay.isGone ? kIOReturnNoDevice : kIOReturnError;
        lane.owner = nullptr;
        if (stay.isGone) return kIOReturnNoDevice;
    }
    journal("close");
    return kIOReturnSuccess;
}

bool VirtualPort::isFree(const VirtualStay& stay, std::uint8_t number, const void* owner) {
    const std::scoped_lock lock(_mutex);
    return isFreeLocked(stay, number, owner);
}

bool VirtualPort::isHeldByOther() {
    const std::scoped_lock lock(_mutex);
    return _heldByOther > 0;
}

bool VirtualPort::isFreeLocked(const VirtualStay& stay, std::uint8_t number, const void* owner) const {
    const void* const holder = stay.lanes.at(number).owner;
    return !stay.isGone && _heldByOther == 0 && (holder == nullptr || holder == owner);
}

void VirtualPort::watchHolder(VirtualStay& stay, std::uint8_t number, const void* owner,
                              std::function<void()> mayBeFree) {
    std::function<void()> dropped; // destroyed after the lock: what it holds may come back here
    bool isFreeAlready = false;
    {
        const std::scoped_lock lock(_mutex);
        auto& watch = stay.holderWatches[owner];
        dropped.swap(watch);
        if (mayBeFree && !stay.isGone) {
            watch = std::move(mayBeFree);
            isFreeAlready = isFreeLocked(stay, number, owner);
        } else {
            stay.holderWatches.erase(owner);
        }
    }
    // It may have been released between the refused claim and this watch: nothing else would report that.
    if (isFreeAlready) post([self = shared_from_this(), owner] { self->notifyWatch(owner); });
}

void VirtualPort::notifyWatch(const void* owner) {
    std::function<void()> watch;
    {
        const std::scoped_lock lock(_mutex);
        if (_stay == nullptr) return;
        const auto found = _stay->holderWatches.find(owner);
        if (found != _stay->holderWatches.end()) watch = found->second; // ended since then otherwise
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
        if (_heldByOther > 0 || _stay == nullptr) return;
        for (const auto& [watcher, watch] : _stay->holderWatches) watches.push_back(watch);
    }
    for (const auto& watch : watches) watch();
}

} // namespace zul
