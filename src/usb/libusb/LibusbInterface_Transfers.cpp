// Bulk and control transfers of one interface. Called by the engine's channel; everything here runs on the printer's
// command queue and blocks it, for at most the given time-outs.
#include "platform/dispatch/Clock.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "usb/libusb/BusLimits.h"
#include "usb/libusb/DeviceConnection.h"
#include "usb/libusb/DeviceIdentities.h"
#include "usb/libusb/LibusbInterface.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <libusb.h>
#include <vector>

namespace zul {

using std::chrono::milliseconds;

namespace {

milliseconds timeoutOf(std::uint32_t completionTimeout) {
    return completionTimeout != 0 ? milliseconds(completionTimeout) : bus_limits::kDefaultTimeout;
}

unsigned int libusbTimeout(milliseconds timeout) {
    return static_cast<unsigned int>(std::max<milliseconds::rep>(timeout.count(), 1)); // 0 would wait without end
}

unsigned char endpointAddress(const PipeProperties& pipe) {
    const unsigned direction = pipe.direction == PipeDirection::in ? LIBUSB_ENDPOINT_IN : LIBUSB_ENDPOINT_OUT;
    return static_cast<unsigned char>(pipe.number | direction);
}

} // namespace

milliseconds controlTimeout(const IOUSBDevRequestTO& request) {
    if (request.completionTimeout == 0 || request.noDataTimeout == 0) return timeoutOf(request.completionTimeout);
    return milliseconds(std::min(request.noDataTimeout, request.completionTimeout));
}

IOReturn LibusbInterface::checkPipe(std::uint8_t pipe, PipeDirection direction) const {
    if (_attachment->gone) return kIOReturnNoDevice;
    if (pipe == 0 || pipe > _descriptors.pipes.size()) return kIOUSBUnknownPipeErr;
    const PipeProperties& properties = _descriptors.pipes[pipe - 1U];
    if (properties.transferType != kUSBBulk || properties.direction != direction) return kIOReturnBadArgument;
    // The kernel would claim the interface by itself and keep it.
    return _connection->isClaimed(_descriptors.interfaceNumber, this) ? kIOReturnSuccess : kIOReturnError;
}

IOReturn LibusbInterface::transferResult(int libusbResult, unsigned char endpoint) const {
    // The stall is reported and the transfer is not repeated, but the pipe is usable for the next one.
    if (libusbResult == LIBUSB_ERROR_PIPE) libusb_clear_halt(_connection->handle(), endpoint);
    return result(libusbResult);
}

std::uint32_t LibusbInterface::takeSurplus(Surplus& surplus, unsigned char* buffer, std::uint32_t size) {
    const auto taken = static_cast<std::uint32_t>(std::min<std::size_t>(size, surplus.bytes.size()));
    std::copy_n(surplus.bytes.begin(), taken, buffer);
    surplus.bytes.erase(surplus.bytes.begin(), surplus.bytes.begin() + taken);
    return taken;
}

IOReturn LibusbInterface::readPackets(const PipeProperties& pipe, Surplus& surplus, std::uint32_t wanted,
                                      milliseconds timeout) {
    const std::uint32_t packet = std::max<std::uint32_t>(pipe.maxPacketSize, 1);
    std::vector<unsigned char> packets((std::size_t{wanted} + packet - 1) / packet * packet);
    int transferred = 0;
    const unsigned char endpoint = endpointAddress(pipe);
    const int result = libusb_bulk_transfer(_connection->handle(), endpoint, packets.data(),
                                            static_cast<int>(packets.size()), &transferred, libusbTimeout(timeout));
    const auto count = static_cast<std::size_t>(std::max(transferred, 0));
    surplus.bytes.insert(surplus.bytes.end(), packets.begin(), packets.begin() + static_cast<std::ptrdiff_t>(count));
    surplus.continues = result == 0 && count == packets.size();
    // All that was asked for has come; only the end of the last packet's transfer was not seen.
    if (result == LIBUSB_ERROR_TIMEOUT && count >= wanted) return kIOReturnSuccess;
    return transferResult(result, endpoint);
}

IOReturn LibusbInterface::ReadPipeTO(std::uint8_t pipe, void* buffer, std::uint32_t& size,
                                     std::uint32_t /*noDataTimeout*/, std::uint32_t completionTimeout) {
    const std::uint32_t asked = size;
    size = 0;
    if (const IOReturn code = checkPipe(pipe, PipeDirection::in); code != kIOReturnSuccess) return code;
    if (asked == 0) return kIOReturnSuccess;
    if (buffer == nullptr) return kIOReturnBadArgument;
    const DeviceConnection::Transfer transfer(*_connection);
    auto* bytes = static_cast<unsigned char*>(buffer);
    Surplus& surplus = _surplus[pipe];
    const bool kept = !surplus.bytes.empty();
    size = takeSurplus(surplus, bytes, asked);
    // What was kept is the rest of an earlier transfer; it is only added to when that transfer continues.
    if (size == asked || (kept && !surplus.continues)) return kIOReturnSuccess;
    const Clock::TimePoint deadline = clock().now() + timeoutOf(completionTimeout);
    const bool continued = surplus.continues;
    IOReturn code = readPackets(_descriptors.pipes[pipe - 1U], surplus, asked - size, timeoutOf(completionTimeout));
    // A transfer that filled its last packet is ended by an empty one. That belongs to what was read before; taken for
    // an answer it would shift all that follow.
    if (continued && size == 0 && code == kIOReturnSuccess && surplus.bytes.empty()) {
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - clock().now());
        if (left.count() > 0) code = readPackets(_descriptors.pipes[pipe - 1U], surplus, asked, left);
    }
    size += takeSurplus(surplus, bytes + size, asked - size);
    return code;
}

IOReturn LibusbInterface::WritePipeTO(std::uint8_t pipe, const void* buffer, std::uint32_t size,
                                      std::uint32_t /*noDataTimeout*/, std::uint32_t completionTimeout) {
    if (const IOReturn code = checkPipe(pipe, PipeDirection::out); code != kIOReturnSuccess) return code;
    if (size == 0) return kIOReturnSuccess;
    if (buffer == nullptr) return kIOReturnBadArgument;
    const DeviceConnection::Transfer transfer(*_connection);
    const unsigned char endpoint = endpointAddress(_descriptors.pipes[pipe - 1U]);
    // libusb takes the bytes to send through a pointer to non-const; it does not write to them.
    auto* bytes = const_cast<unsigned char*>(static_cast<const unsigned char*>(buffer));
    const Clock::TimePoint deadline = clock().now() + timeoutOf(completionTimeout);
    for (std::uint32_t done = 0; done < size;) {
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - clock().now());
        if (left.count() <= 0) return kIOUSBTransactionTimeout;
        const auto piece = static_cast<int>(std::min<std::size_t>(size - done, bus_limits::kWritePiece));
        int transferred = 0;
        const int code = libusb_bulk_transfer(_connection->handle(), endpoint, bytes + done, piece, &transferred,
                                              libusbTimeout(left));
        done += static_cast<std::uint32_t>(std::max(transferred, 0));
        if (_writeProgress != nullptr && transferred > 0) _writeProgress(done, size);
        if (code == LIBUSB_ERROR_TIMEOUT && done == size) return kIOReturnSuccess;
        if (code != 0) return transferResult(code, endpoint);
        if (transferred < piece) return kIOReturnUnderrun; // never seen; continuing would shift the bytes of the frame
    }
    return kIOReturnSuccess;
}

IOReturn LibusbInterface::ControlRequestTO(std::uint8_t pipe, IOUSBDevRequestTO& request) {
    request.wLenDone = 0;
    if (_attachment->gone) return kIOReturnNoDevice;
    if (pipe != 0) return kIOUSBUnknownPipeErr;
    if (request.pData == nullptr && request.wLength > 0) return kIOReturnBadArgument;
    for (const DeviceIdentity& identity : _attachment->identities) {
        if (identity.answers(request)) return identity.fill(request);
    }
    std::uint16_t length = request.wLength;
    const bool in = (request.bmRequestType & LIBUSB_ENDPOINT_DIR_MASK) == LIBUSB_ENDPOINT_IN;
    if (in) length = std::min(length, bus_limits::kControlTransferMax);
    const DeviceConnection::Transfer transfer(*_connection);
    const int code = libusb_control_transfer(_connection->handle(), request.bmRequestType, request.bRequest,
                                             request.wValue, request.wIndex, static_cast<unsigned char*>(request.pData),
                                             length, libusbTimeout(controlTimeout(request)));
    if (code > 0) request.wLenDone = static_cast<std::uint32_t>(code);
    return result(code); // a stalled control pipe frees itself with the next request
}

IOReturn LibusbInterface::resynchronize(std::uint8_t pipe) {
    if (const IOReturn code = checkPipe(pipe, PipeDirection::in); code != kIOReturnSuccess) return code;
    const DeviceConnection::Transfer transfer(*_connection);
    const PipeProperties& properties = _descriptors.pipes[pipe - 1U];
    _surplus.erase(pipe);
    libusb_clear_halt(_connection->handle(), endpointAddress(properties)); // what it fails for, the reads report
    const Clock::TimePoint deadline = clock().now() + bus_limits::kResynchronizeTime;
    for (std::size_t total = 0; total < bus_limits::kResynchronizeBytes && clock().now() < deadline;) {
        Surplus dropped;
        const IOReturn code =
            readPackets(properties, dropped, bus_limits::kResynchronizePiece, bus_limits::kResynchronizeQuiet);
        if (code == kIOUSBTransactionTimeout && dropped.bytes.empty()) return kIOReturnSuccess;
        // A stall is cleared by then, and what was too long is gone: the pipe has to be quiet, not free of errors.
        const bool mayContinue = code == kIOReturnSuccess || code == kIOUSBTransactionTimeout ||
                                 code == kIOUSBPipeStalled || code == kIOReturnOverrun;
        if (!mayContinue) return code;
        // An error is taken for one packet, so that a pipe of errors ends the loop, too.
        total += std::max<std::size_t>(dropped.bytes.size(), properties.maxPacketSize);
    }
    return kIOReturnOverrun;
}

} // namespace zul
