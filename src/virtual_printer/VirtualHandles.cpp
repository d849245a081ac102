// The handles of an embedded printer: most calls are forwarded to its port. Called by the engine on the printer's
// command queue, services on the main queue.
#include "virtual_printer/VirtualHandles.h"

#include "platform/dispatch/Clock.h"
#include "platform/foundation/Data.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/IOUSBInterfaceInterface.h"
#include "platform/usb/PrinterReservations.h"
#include "virtual_printer/VirtualDescriptors.h"
#include "virtual_printer/VirtualPort.h"
#include "virtual_printer/VirtualPrinter.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace zul {

namespace {

constexpr std::uint8_t kOutPipe = 1;
constexpr std::uint8_t kInPipe = 2;

// As on the real bus, resynchronization reads until no data arrives for the shorter time, and gives up after the longer
// one.
constexpr std::uint32_t kResynchronizeQuiet = 100; // ms
constexpr std::uint32_t kResynchronizeTime = 2000; // ms

Clock::TimePoint deadlineAfter(VirtualPort& port, std::uint32_t milliseconds) {
    return port.clock().now() + std::chrono::milliseconds(milliseconds);
}

} // namespace

IOReturn VirtualService::createInterfaceInterface(std::shared_ptr<IOUSBInterfaceInterface>& interfaceInterface) {
    interfaceInterface = nullptr;
    if (_attachment->isGone) return kIOReturnNoDevice;
    interfaceInterface = std::make_shared<VirtualInterface>(_port, _attachment, _descriptors);
    return kIOReturnSuccess;
}

// ---- interface ------------------------------------------------------------------------------------------------------

VirtualInterface::~VirtualInterface() {
    _port->watchHolder(*_attachment, number(), this, nullptr);
    if (_isClaimed)
        static_cast<void>(_port->release(*_attachment, number(), this)); // the destructor cannot report a failure
}

IOReturn VirtualInterface::USBInterfaceOpenSeize() {
    const IOReturn code = _port->claim(*_attachment, number(), this);
    _isClaimed = code == kIOReturnSuccess;
    return code;
}

IOReturn VirtualInterface::USBInterfaceClose() {
    _isClaimed = false;
    return _port->release(*_attachment, number(), this);
}

IOReturn VirtualInterface::ReadPipeTO(std::uint8_t pipe, void* buffer, std::uint32_t& size,
                                      std::uint32_t /*noDataTimeout*/, std::uint32_t completionTimeout) {
    const std::uint32_t asked = size;
    size = 0;
    if (_attachment->isGone) return kIOReturnNoDevice;
    if (pipe != kInPipe) return kIOUSBUnknownPipeErr;
    if (!isClaimed()) return kIOReturnError;
    size = asked;
    return _port->read(*_attachment, number(), static_cast<std::uint8_t*>(buffer), size,
                       deadlineAfter(*_port, completionTimeout));
}

IOReturn VirtualInterface::WritePipeTO(std::uint8_t pipe, const void* buffer, std::uint32_t size,
                                       std::uint32_t /*noDataTimeout*/, std::uint32_t completionTimeout) {
    if (_attachment->isGone) return kIOReturnNoDevice;
    if (pipe != kOutPipe) return kIOUSBUnknownPipeErr;
    if (!isClaimed()) return kIOReturnError;
    return _port->write(_attachment, number(), {static_cast<const std::uint8_t*>(buffer), size},
                        deadlineAfter(*_port, completionTimeout), _progress);
}

IOReturn VirtualInterface::ControlRequestTO(std::uint8_t pipe, IOUSBDevRequestTO& request) {
    request.wLenDone = 0;
    if (_attachment->isGone) return kIOReturnNoDevice;
    if (pipe != 0) return kIOUSBUnknownPipeErr;
    _port->journal("control", controlRequestName(request));
    if (isSoftReset(request)) {
        _port->resetPrinter(*_attachment);
        return kIOReturnSuccess;
    }
    std::optional<Data> answer;
    _port->inspect([&](const VirtualPrinter& printer) { answer = answerControlRequest(printer, request); });
    // As a device answers a request that it does not know.
    if (!answer) return kIOUSBPipeStalled;
    request.wLenDone = static_cast<std::uint32_t>(std::min<std::size_t>(answer->size(), request.wLength));
    std::copy_n(answer->begin(), request.wLenDone, static_cast<std::uint8_t*>(request.pData));
    return kIOReturnSuccess;
}

IOReturn VirtualInterface::resynchronize(std::uint8_t pipe) {
    if (_attachment->isGone) return kIOReturnNoDevice;
    if (pipe != kInPipe) return kIOUSBUnknownPipeErr;
    if (!isClaimed()) return kIOReturnError;
    _port->journal("resynchronize");
    std::array<std::uint8_t, 4096> dropped{};
    const Clock::TimePoint deadline = deadlineAfter(*_port, kResynchronizeTime);
    while (_port->clock().now() < deadline) {
        auto size = static_cast<std::uint32_t>(dropped.size());
        const IOReturn code =
            _port->read(*_attachment, number(), dropped.data(), size, deadlineAfter(*_port, kResynchronizeQuiet));
        if (code == kIOUSBTransactionTimeout) return kIOReturnSuccess;
        // Stalls and data are dropped, as on the real bus; each is removed from the pipe by its read.
        if (code == kIOReturnNoDevice) return code;
    }
    return kIOReturnOverrun;
}

IOReturn VirtualInterface::GetDevice(std::shared_ptr<IOUSBDeviceInterface>& device) {
    device = nullptr;
    if (_attachment->isGone) return kIOReturnNoDevice;
    device = std::make_shared<VirtualDeviceHandle>(_port, _attachment);
    return kIOReturnSuccess;
}

void VirtualInterface::watchHolder(std::function<void()> mayBeFree) {
    _port->watchHolder(*_attachment, number(), this, std::move(mayBeFree));
}

InterfaceHolder VirtualInterface::holder() {
    InterfaceHolder holder;
    if (_attachment->isGone || !_port->isHeldByOther()) return holder;
    holder.kind = InterfaceHolder::Kind::process;
    holder.program = "another program";
    return holder;
}

IOReturn VirtualInterface::tryClaim() {
    if (_attachment->isGone) return kIOReturnNoDevice;
    return _port->isFree(*_attachment, number(), this) ? kIOReturnSuccess : kIOReturnExclusiveAccess;
}

// ---- device ---------------------------------------------------------------------------------------------------------

IOReturn VirtualDeviceHandle::ResetDevice() {
    if (_attachment->isGone) return kIOReturnNoDevice;
    _port->resetPrinter(*_attachment);
    return kIOReturnSuccess;
}

IOReturn VirtualDeviceHandle::USBDeviceReEnumerate(std::uint32_t /*options*/) {
    if (_attachment->isGone) return kIOReturnNoDevice;
    VirtualDeparture departure;
    departure.away = _port->settings.restartTime;
    _port->leave(_attachment, departure);
    return kIOReturnSuccess;
}

IOReturn VirtualDeviceHandle::USBGetManufacturerStringIndex(std::uint8_t& index) {
    index = kVirtualManufacturerIndex;
    return present();
}
IOReturn VirtualDeviceHandle::USBGetProductStringIndex(std::uint8_t& index) {
    index = kVirtualProductIndex;
    return present();
}
IOReturn VirtualDeviceHandle::USBGetSerialNumberStringIndex(std::uint8_t& index) {
    _port->inspect([&](const VirtualPrinter& printer) { index = printer.serialText() ? kVirtualSerialIndex : 0; });
    return present();
}

} // namespace zul
