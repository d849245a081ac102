// Opening the node, claims, and the kernel's printer driver: it is taken off at the first claim and stays off over all
// closes (each return would make it question the printer again); it gets the interface back when the program is done.
#include "usb/libusb/DeviceConnection.h"

#include "usb/libusb/LibusbResult.h"

#include <libusb.h>

namespace zul {

AttachedDevice::AttachedDevice(std::shared_ptr<LibusbContext> context, libusb_device* device)
    : _context(std::move(context)), _device(device) {}

bool AttachedDevice::readDescriptors() {
    DeviceFacts facts;
    const auto interfaces = readPrinterInterfaces(_device.get(), facts);
    _facts = facts;
    if (interfaces) _interfaces = *interfaces;
    return interfaces.has_value();
}

IOReturn AttachedDevice::connect(std::shared_ptr<DeviceConnection>& connection) {
    const std::scoped_lock lock(_mutex);
    connection = _connection.lock();
    if (connection != nullptr) return kIOReturnSuccess;
    libusb_device_handle* handle = nullptr;
    if (const int result = libusb_open(_device.get(), &handle); result != 0) return ioReturnFromLibusb(result);
    connection = std::make_shared<DeviceConnection>(shared_from_this(), handle);
    _connection = connection;
    return kIOReturnSuccess;
}

std::shared_ptr<DeviceConnection> AttachedDevice::connection() {
    const std::scoped_lock lock(_mutex);
    return _connection.lock();
}

DeviceConnection::DeviceConnection(std::shared_ptr<AttachedDevice> device, libusb_device_handle* handle)
    : _device(std::move(device)), _handle(handle) {}

DeviceConnection::~DeviceConnection() {
    {
        const std::scoped_lock lock(_mutex);
        releaseAllLocked();
        giveBackLocked();
    }
    libusb_close(_handle);
}

IOReturn DeviceConnection::seize(std::uint8_t interface, const void* owner) {
    const std::scoped_lock lock(_mutex);
    if (const auto held = _owners.find(interface); held != _owners.end()) {
        held->second = owner; // the handle of before a re-enumeration hands over to the one after it
        return kIOReturnSuccess;
    }
    int result = libusb_claim_interface(_handle, interface);
    // Busy may be the kernel's own driver, which is taken off, or another program, which is not asked.
    if (result == LIBUSB_ERROR_BUSY && libusb_kernel_driver_active(_handle, interface) == 1) {
        if (const IOReturn code = takeDriverOff(interface); code != kIOReturnSuccess) return code;
        result = libusb_claim_interface(_handle, interface);
    }
    if (result == 0) _owners[interface] = owner;
    return ioReturnFromLibusb(result);
}

IOReturn DeviceConnection::takeDriverOff(std::uint8_t interface) {
    const int result = libusb_detach_kernel_driver(_handle, interface);
    if (result == LIBUSB_ERROR_NOT_FOUND) return kIOReturnSuccess; // somebody else was quicker
    if (result != 0) return ioReturnFromLibusb(result);
    const std::scoped_lock lock(_device->_mutex);
    _device->_driverDetached.insert(interface);
    return kIOReturnSuccess;
}

IOReturn DeviceConnection::release(std::uint8_t interface, const void* owner) {
    const std::scoped_lock lock(_mutex);
    const auto held = _owners.find(interface);
    if (held == _owners.end() || held->second != owner) return kIOReturnError;
    _owners.erase(held);
    return ioReturnFromLibusb(libusb_release_interface(_handle, interface));
}

IOReturn DeviceConnection::tryClaim(std::uint8_t interface) {
    const std::scoped_lock lock(_mutex);
    if (_owners.contains(interface)) return kIOReturnSuccess;
    const int result = libusb_claim_interface(_handle, interface);
    if (result == LIBUSB_ERROR_BUSY && libusb_kernel_driver_active(_handle, interface) == 1) return kIOReturnSuccess;
    if (result == 0) libusb_release_interface(_handle, interface);
    return ioReturnFromLibusb(result);
}

bool DeviceConnection::isClaimed(std::uint8_t interface, const void* owner) {
    const std::scoped_lock lock(_mutex);
    const auto held = _owners.find(interface);
    return held != _owners.end() && held->second == owner;
}

std::map<std::uint8_t, const void*> DeviceConnection::releaseAll() {
    const std::scoped_lock lock(_mutex);
    const auto owners = _owners;
    releaseAllLocked();
    return owners;
}

void DeviceConnection::releaseAllLocked() {
    // "No such device" is the usual answer after a departure and no error here.
    for (const auto& [interface, owner] : _owners) libusb_release_interface(_handle, interface);
    _owners.clear();
}

bool DeviceConnection::isOnBus(std::uint8_t interface) {
    return !_device->left && libusb_kernel_driver_active(_handle, interface) != LIBUSB_ERROR_NO_DEVICE;
}

void DeviceConnection::giveBack() {
    const std::scoped_lock lock(_mutex);
    if (_transfers > 0 || _device->left || _device->restartExpected) return;
    releaseAllLocked();
    giveBackLocked();
}

void DeviceConnection::giveBackLocked() {
    if (_device->left || _device->restartExpected) return;
    std::set<std::uint8_t> detached;
    {
        const std::scoped_lock lock(_device->_mutex);
        detached.swap(_device->_driverDetached);
    }
    for (const std::uint8_t interface : detached) libusb_attach_kernel_driver(_handle, interface);
}

} // namespace zul
