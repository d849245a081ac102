// Bulk transfers of the embedded printers. On the printers' queues, which they block as a real device would.
#include "virtual_printer/VirtualPort.h"

#include <algorithm>
#include <cstring>

namespace zul {

namespace {

// How often a long write tells how far it has come: the real bus writes in pieces of this size.
constexpr std::uint32_t kPiece = 256 * 1024;

} // namespace

IOReturn VirtualPort::read(VirtualStay& stay, std::uint8_t* buffer, std::uint32_t& size, Clock::TimePoint deadline) {
    const std::uint32_t asked = size;
    size = 0;
    for (;;) {
        {
            const std::scoped_lock lock(_mutex);
            if (stay.isGone) {
                journal("read", {}, 0, "gone");
                return kIOReturnNoDevice;
            }
            if (!stay.transfers.empty()) {
                VirtualTransfer& transfer = stay.transfers.front();
                if (transfer.isStall) {
                    stay.transfers.pop_front();
                    journal("read", {}, 0, "stall");
                    return kIOUSBPipeStalled;
                }
                size = std::min(asked, static_cast<std::uint32_t>(transfer.bytes.size()));
                std::memcpy(buffer, transfer.bytes.data(), size);
                // What was not asked for stays for the next read, as the real bus keeps it.
                transfer.bytes.erase(transfer.bytes.begin(), transfer.bytes.begin() + size);
                if (transfer.bytes.empty()) stay.transfers.pop_front();
                journal("read", {}, size);
                return kIOReturnSuccess;
            }
        }
        if (!stay.changed->waitUntil(deadline)) {
            journal("read", {}, 0, "timeout");
            return kIOUSBTransactionTimeout;
        }
    }
}

IOReturn VirtualPort::write(const std::shared_ptr<VirtualStay>& stay, const std::uint8_t* bytes, std::uint32_t size,
                            Clock::TimePoint deadline, const IOUSBInterfaceInterface::WriteProgress& progress) {
    for (std::uint32_t done = 0; done < size;) {
        const std::uint32_t piece = std::min(size - done, kPiece);
        const auto time = std::chrono::microseconds(1000000LL * piece / settings.speed);
        if (_clock.now() + time > deadline) {
            if (_clock.now() < deadline) _clock.sleepFor(deadline - _clock.now());
            return kIOUSBTransactionTimeout;
        }
        // A command is over before anybody could tell the time; only large pieces take any.
        if (piece == kPiece || size > kPiece) _clock.sleepFor(time);
        VirtualEffects effects;
        {
            const std::scoped_lock lock(_mutex);
            if (stay->isGone) return kIOReturnNoDevice;
            effects = _printer.receive({bytes + done, piece});
        }
        done += piece;
        if (effects.stallsOut) return kIOUSBPipeStalled;
        deliver(stay, std::move(effects.transfers));
        if (effects.departure) schedule(*effects.departure, stay);
        if (stay->isGone) return kIOReturnNoDevice;
        if (progress) progress(done, size);
    }
    return kIOReturnSuccess;
}

void VirtualPort::deliver(const std::shared_ptr<VirtualStay>& stay, std::vector<VirtualTransfer> transfers) {
    std::vector<VirtualTransfer> late;
    {
        const std::scoped_lock lock(_mutex);
        for (VirtualTransfer& transfer : transfers) {
            if (transfer.delay.count() > 0) {
                late.push_back(std::move(transfer));
            } else {
                stay->transfers.push_back(std::move(transfer));
            }
        }
        if (!stay->transfers.empty()) stay->changed->signal();
    }
    if (late.empty()) return;
    const auto delay = late.front().delay;
    for (VirtualTransfer& transfer : late) transfer.delay = {};
    _clock.callAt(_clock.now() + delay, [weak = weak_from_this(), stay, late = std::move(late)] {
        if (const auto self = weak.lock()) self->deliver(stay, late);
    });
}

void VirtualPort::resetPrinter(VirtualStay& stay) {
    {
        const std::scoped_lock lock(_mutex);
        _printer.reset();
        stay.transfers.clear();
    }
    journal("reset");
}

} // namespace zul
