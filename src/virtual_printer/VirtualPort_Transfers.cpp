// Bulk transfers of the embedded printers.
// Called on the printers' command queues, which they block as a real device would.
#include "platform/dispatch/Clock.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "virtual_printer/VirtualPort.h"
#include "virtual_printer/VirtualPrinter.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

namespace zul {

namespace {

// A long write reports its progress after each piece of this size, as the real bus does.
constexpr std::size_t kPiece = 256 * 1024;
// How often a write checks whether the write of the other interface has ended.
constexpr auto kTurn = std::chrono::milliseconds(10);

const char* nameOfResult(IOReturn code) {
    if (code == kIOUSBTransactionTimeout) return "timeout";
    return code == kIOUSBPipeStalled ? "stall" : "gone";
}

} // namespace

IOReturn VirtualPort::read(VirtualAttachment& attachment, std::uint8_t number, std::uint8_t* buffer,
                           std::uint32_t& size, Clock::TimePoint deadline) {
    VirtualEndpointPair& endpoints = attachment.endpointPairs.at(number);
    const std::uint32_t asked = size;
    size = 0;
    const auto failed = [this](IOReturn code) {
        journal("read", {}, 0, nameOfResult(code));
        return code;
    };
    for (;;) {
        {
            const std::scoped_lock lock(_mutex);
            if (attachment.isGone) return failed(kIOReturnNoDevice);
            if (!endpoints.transfers.empty()) {
                VirtualTransfer& transfer = endpoints.transfers.front();
                if (transfer.isStall) {
                    endpoints.transfers.pop_front();
                    return failed(kIOUSBPipeStalled);
                }
                size = std::min(asked, static_cast<std::uint32_t>(transfer.bytes.size()));
                std::copy_n(transfer.bytes.begin(), size, buffer);
                // Bytes that were not requested are kept for the next read, as on the real bus.
                transfer.bytes.erase(transfer.bytes.begin(), transfer.bytes.begin() + size);
                if (transfer.bytes.empty()) endpoints.transfers.pop_front();
                journal("read", {}, size);
                return kIOReturnSuccess;
            }
        }
        // Outside the lock, because the transfer comes from another thread.
        if (!endpoints.changed->waitUntil(deadline)) return failed(kIOUSBTransactionTimeout);
    }
}

IOReturn VirtualPort::write(const std::shared_ptr<VirtualAttachment>& attachment, std::uint8_t number,
                            std::span<const std::uint8_t> bytes, Clock::TimePoint deadline,
                            const IOUSBInterfaceInterface::WriteProgress& progress) {
    if (!waitForTurn(*attachment, attachment->endpointPairs.at(number), deadline)) {
        const IOReturn code = attachment->isGone ? kIOReturnNoDevice : kIOUSBTransactionTimeout;
        journal("write", {}, 0, nameOfResult(code));
        return code;
    }
    const IOReturn code = writePieces(attachment, number, bytes, deadline, progress);
    const std::scoped_lock lock(_mutex);
    attachment->writer = nullptr;
    return code;
}

// Both interfaces lead to one printer, which could not distinguish their frames.
bool VirtualPort::waitForTurn(VirtualAttachment& attachment, const VirtualEndpointPair& endpoints,
                              Clock::TimePoint deadline) {
    for (;;) {
        {
            const std::scoped_lock lock(_mutex);
            if (attachment.isGone) return false;
            if (attachment.writer == nullptr) {
                attachment.writer = &endpoints;
                return true;
            }
        }
        const Clock::TimePoint now = _clock.now();
        if (now >= deadline) return false;
        _clock.sleepFor(std::min<Clock::Duration>(kTurn, deadline - now));
    }
}

IOReturn VirtualPort::writePieces(const std::shared_ptr<VirtualAttachment>& attachment, std::uint8_t number,
                                  std::span<const std::uint8_t> bytes, Clock::TimePoint deadline,
                                  const IOUSBInterfaceInterface::WriteProgress& progress) {
    ClockEvent& changed = *attachment->endpointPairs.at(number).changed;
    const auto total = static_cast<std::uint32_t>(bytes.size());
    // A command takes no measurable time; only large pieces do.
    const bool takesTime = bytes.size() >= kPiece;
    std::uint32_t done = 0;
    const auto failed = [&](IOReturn code) {
        journal("write", {}, done, nameOfResult(code));
        return code;
    };
    while (done < total) {
        const auto piece = bytes.subspan(done, std::min<std::size_t>(total - done, kPiece));
        if (takesTime) {
            const auto time =
                std::chrono::microseconds(1000000LL * static_cast<long long>(piece.size()) / settings.speed);
            const Clock::TimePoint end = _clock.now() + time;
            const Clock::TimePoint until = std::min(end, deadline);
            // Other events, such as a late reply, also wake this up.
            while (!attachment->isGone && _clock.now() < until) changed.waitUntil(until);
            if (!attachment->isGone && end > deadline) return failed(kIOUSBTransactionTimeout);
        }
        VirtualEffects effects;
        {
            const std::scoped_lock lock(_mutex);
            if (attachment->isGone) return failed(kIOReturnNoDevice);
            effects = _printer.receive(piece);
        }
        if (effects.stallsOut) return failed(kIOUSBPipeStalled);
        done += static_cast<std::uint32_t>(piece.size());
        deliver(attachment, number, std::move(effects.transfers));
        // An immediate departure discards the piece; a later one happens after it was accepted. A device has
        // acknowledged what it accepted, so a write that was accepted whole succeeds, even if the printer departs at
        // once afterwards.
        const bool isCutOff = effects.departure && effects.departure->after.count() == 0;
        if (effects.departure) schedule(*effects.departure, attachment);
        if (progress && !isCutOff) progress(done, total);
        // Also an unplugging by hand in the meantime ends the write.
        if (attachment->isGone && (isCutOff || done < total)) return failed(kIOReturnNoDevice);
    }
    return kIOReturnSuccess;
}

void VirtualPort::deliver(const std::shared_ptr<VirtualAttachment>& attachment, std::uint8_t number,
                          std::vector<VirtualTransfer> transfers) {
    VirtualEndpointPair& endpoints = attachment->endpointPairs.at(number);
    std::vector<VirtualTransfer> late;
    {
        const std::scoped_lock lock(_mutex);
        for (VirtualTransfer& transfer : transfers) {
            if (transfer.delay.count() > 0) {
                late.push_back(std::move(transfer));
            } else {
                endpoints.transfers.push_back(std::move(transfer));
            }
        }
        if (!endpoints.transfers.empty()) endpoints.changed->signal();
    }
    if (late.empty()) return;
    const auto delay = late.front().delay;
    // They are ready when the timer calls this again.
    for (VirtualTransfer& transfer : late) transfer.delay = {};
    _clock.callAt(_clock.now() + delay, [weak = weak_from_this(), attachment, number, late = std::move(late)] {
        if (const auto self = weak.lock()) self->deliver(attachment, number, late);
    });
}

void VirtualPort::resetPrinter(VirtualAttachment& attachment) {
    {
        const std::scoped_lock lock(_mutex);
        _printer.reset();
        for (VirtualEndpointPair& endpoints : attachment.endpointPairs) endpoints.transfers.clear();
    }
    journal("reset");
}

} // namespace zul
