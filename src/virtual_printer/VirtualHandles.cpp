#include "virtual_printer/VirtualHandles.h"

#include "virtual_printer/VirtualDescriptors.h"

#include <algorithm>
#include <array>

namespace zul {

namespace {

constexpr std::uint8_t kOutPipe = 1;
constexpr std::uint8_t kInPipe = 2;
constexpr std::uint16_t kPacketSize = 512;

// How the real bus brings a pipe back in step: it reads until no data has come for the shorter time, and
// gives up after the longer one.
constexpr std::uint32_t kResynchronizeQuiet = 100; // ms
constexpr std::uint32_t kResynchronizeTime = 2000; // ms

Clock::TimePoint deadlineAfter(VirtualPort& port, std::uint32_t milliseconds) {
    return port.clock().now() + std::chrono::milliseconds(milliseconds);
}

} // namespace

// ---- descriptors ----------------------------------------------------------------------------------------------------

template <class Base>
VirtualDescription<Base>::VirtualDescription(std::shared_ptr<VirtualPort> port, std::shared_ptr<VirtualStay> stay,
                                             std::uint8_t number)
    : _port(std::move(port)), _stay(std::move(stay)), _number(number) {}

template <class Base> IOReturn VirtualDescription<Base>::GetInterfaceClass(std::uint8_t& interfaceClass) {
    interfaceClass = 7;
    return kIOReturnSuccess;
}
template <class Base> IOReturn VirtualDescription<Base>::GetInterfaceSubClass(std::uint8_t& interfaceSubClass) {
    interfaceSubClass = 1;
    return kIOReturnSuccess;
}
template <class Base> IOReturn VirtualDescription<Base>::GetDeviceVendor(std::uint16_t& vendor) {
    vendor = _port->settings.vendorID;
    return kIOReturnSuccess;
}
template <class Base> IOReturn VirtualDescription<Base>::GetDeviceProduct(std::uint16_t& product) {
    _port->inspect([&](const VirtualPrinter& printer) { product = printer.productID(); });
    return kIOReturnSuccess;
}
template <class Base> IOReturn VirtualDescription<Base>::GetDeviceReleaseNumber(std::uint16_t& releaseNumber) {
    releaseNumber = kVirtualReleaseNumber;
    return kIOReturnSuccess;
}
template <class Base> IOReturn VirtualDescription<Base>::GetLocationID(std::uint32_t& locationID) {
    locationID = _port->locationID();
    return kIOReturnSuccess;
}
template <class Base> IOReturn VirtualDescription<Base>::GetInterfaceNumber(std::uint8_t& number) {
    number = _number;
    return kIOReturnSuccess;
}
template <class Base> IOReturn VirtualDescription<Base>::GetAlternateSetting(std::uint8_t& alternate) {
    alternate = 0;
    return kIOReturnSuccess;
}
template <class Base> IOReturn VirtualDescription<Base>::GetConfigurationValue(std::uint8_t& configuration) {
    configuration = 1;
    return kIOReturnSuccess;
}
template <class Base> IOReturn VirtualDescription<Base>::GetNumEndpoints(std::uint8_t& count) {
    count = 2;
    return kIOReturnSuccess;
}
template <class Base>
IOReturn VirtualDescription<Base>::GetPipeProperties(std::uint8_t pipe, PipeProperties& properties) {
    if (pipe != kOutPipe && pipe != kInPipe) return kIOUSBUnknownPipeErr;
    properties.direction = pipe == kOutPipe ? PipeDirection::out : PipeDirection::in;
    properties.number = static_cast<std::uint8_t>(pipe + 2 * _number);
    properties.transferType = kUSBBulk;
    properties.maxPacketSize = kPacketSize;
    properties.interval = 0;
    return kIOReturnSuccess;
}

template class VirtualDescription<USBService>;
template class VirtualDescription<IOUSBInterfaceInterface>;

IOReturn VirtualService::createInterfaceInterface(std::shared_ptr<IOUSBInterfaceInterface>& interfaceInterface) {
    interfaceInterface = nullptr;
    if (_stay->isGone) return kIOReturnNoDevice;
    interfaceInterface = std::make_shared<VirtualInterface>(_port, _stay, _number);
    return kIOReturnSuccess;
}

// ---- interface ------------------------------------------------------------------------------------------------------

VirtualInterface::~VirtualInterface() {
    _port->watchHolder(*_stay, this, nullptr);
    if (_isClaimed) static_cast<void>(_port->release(*_stay, _number, this)); // nobody is left to hear of a failure
}

IOReturn VirtualInterface::USBInterfaceOpenSeize() {
    const IOReturn code = _port->claim(*_stay, _number, this);
    _isClaimed = code == kIOReturnSuccess;
    return code;
}

IOReturn VirtualInterface::USBInterfaceClose() {
    _isClaimed = false;
    return _port->release(*_stay, _number, this);
}

IOReturn VirtualInterface::ReadPipeTO(std::uint8_t pipe, void* buffer, std::uint32_t& size,
                                      std::uint32_t /*noDataTimeout*/, std::uint32_t completionTimeout) {
    const std::uint32_t asked = size;
    size = 0;
    if (_stay->isGone) return kIOReturnNoDevice;
    if (pipe != kInPipe) return kIOUSBUnknownPipeErr;
    if (!isClaimed()) return kIOReturnError;
    size = asked;
    return _port->read(*_stay, _number, static_cast<std::uint8_t*>(buffer), size,
                       deadlineAfter(*_port, completionTimeout));
}

IOReturn VirtualInterface::WritePipeTO(std::uint8_t pipe, const void* buffer, std::uint32_t size,
                                       std::uint32_t /*noDataTimeout*/, std::uint32_t completionTimeout) {
    if (_stay->isGone) return kIOReturnNoDevice;
    if (pipe != kOutPipe) return kIOUSBUnknownPipeErr;
    if (!isClaimed()) return kIOReturnError;
    return _port->write(_stay, _number, {static_cast<const std::uint8_t*>(buffer), size},
                        deadlineAfter(*_port, completionTimeout), _progress);
}

IOReturn VirtualInterface::ControlRequestTO(std::uint8_t pipe, IOUSBDevRequestTO& request) {
    request.wLenDone = 0;
    if (_stay->isGone) return kIOReturnNoDevice;
    if (pipe != 0) return kIOUSBUnknownPipeErr;
    _port->journal("control", controlRequestName(request));
    if (isSoftReset(request)) {
        _port->resetPrinter(*_stay);
        return kIOReturnSuccess;
    }
    std::optional<Data> answer;
    _port->inspect([&](const VirtualPrinter& printer) { answer = answerControlRequest(printer, request); });
    if (!answer) return kIOUSBPipeStalled;
    request.wLenDone = static_cast<std::uint32_t>(std::min<std::size_t>(answer->size(), request.wLength));
    std::copy_n(answer->begin(), request.wLenDone, static_cast<std::uint8_t*>(request.pData));
    return kIOReturnSuccess;
}

IOReturn VirtualInterface::resynchronize(std::uint8_t pipe) {
    if (_stay->isGone) return kIOReturnNoDevice;
    if (pipe != kInPipe) return kIOUSBUnknownPipeErr;
    if (!isClaimed()) return kIOReturnError;
    _port->journal("resynchronize");
    std::array<std::uint8_t, 4096> dropped{};
    const Clock::TimePoint deadline = deadlineAfter(*_port, kResynchronizeTime);
    while (_port->clock().now() < deadline) {
        auto size = static_cast<std::uint32_t>(dropped.size());
        const IOReturn code =
            _port->read(*_stay, _number, dropped.data(), size, deadlineAfter(*_port, kResynchronizeQuiet));
        if (code == kIOUSBTransactionTimeout) return kIOReturnSuccess;
        if (code == kIOReturnNoDevice) return code;
    }
    return kIOReturnOverrun;
}

IOReturn VirtualInterface::GetDevice(std::shared_ptr<IOUSBDeviceInterface>& device) {
    device = nullptr;
    if (_stay->isGone) return kIOReturnNoDevice;
    device = std::make_shared<VirtualDeviceHandle>(_port, _stay);
    return kIOReturnSuccess;
}

void VirtualInterface::watchHolder(std::function<void()> mayBeFree) {
    _port->watchHolder(*_stay, this, std::move(mayBeFree));
}

IOReturn VirtualInterface::tryClaim() {
    if (_stay->isGone) return kIOReturnNoDevice;
    return _port->isFree(*_stay) ? kIOReturnSuccess : kIOReturnExclusiveAccess;
}

// ---- device ---------------------------------------------------------------------------------------------------------

IOReturn VirtualDeviceHandle::ResetDevice() {
    if (_stay->isGone) return kIOReturnNoDevice;
    _port->resetPrinter(*_stay);
    return kIOReturnSuccess;
}

IOReturn VirtualDeviceHandle::USBDeviceReEnumerate(std::uint32_t /*options*/) {
    if (_stay->isGone) return kIOReturnNoDevice;
    VirtualDeparture departure;
    departure.away = _port->settings.restartTime;
    _port->leave(_stay, departure);
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
