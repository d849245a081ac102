// Reads the descriptors. libusb answers all of this from its cache and from sysfs, so nothing here waits for a device.
// Called by the core at an arrival, on the main queue, and by the scan on its thread.
#include "usb/libusb/InterfaceDescriptors.h"

#include "platform/foundation/Format.h"
#include "platform/usb/DescribedInterface.h"
#include "platform/usb/IOUSBInterfaceInterface.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <libusb.h>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zul {

namespace {

constexpr std::size_t kPortsMax = 7; // the deepest path that USB allows

PipeProperties pipeProperties(const libusb_endpoint_descriptor& endpoint) {
    PipeProperties pipe;
    const bool in = (endpoint.bEndpointAddress & LIBUSB_ENDPOINT_DIR_MASK) == LIBUSB_ENDPOINT_IN;
    pipe.direction = in ? PipeDirection::in : PipeDirection::out;
    pipe.number = endpoint.bEndpointAddress & LIBUSB_ENDPOINT_ADDRESS_MASK;
    pipe.transferType = endpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK;
    pipe.maxPacketSize = endpoint.wMaxPacketSize & 0x07FFU; // the bits above: extra transactions
    pipe.interval = endpoint.bInterval;
    return pipe;
}

// The alternate setting that is active once we hold the interface: the kernel selects number 0 when it detaches its
// own driver, so a setting that this driver chose is not used.
const libusb_interface_descriptor* activeSetting(const libusb_interface& interface) {
    const auto* begin = interface.altsetting;
    const auto* end = begin + interface.num_altsetting;
    const auto* found = std::find_if(begin, end, [](const auto& setting) { return setting.bAlternateSetting == 0; });
    if (found != end) return found;
    return begin == end ? nullptr : begin;
}

bool readDevice(libusb_device* device, DeviceDescriptors& descriptors) {
    libusb_device_descriptor descriptor{};
    if (libusb_get_device_descriptor(device, &descriptor) != 0) return false;
    descriptors.busNumber = libusb_get_bus_number(device);
    descriptors.address = libusb_get_device_address(device);
    descriptors.vendor = descriptor.idVendor;
    descriptors.product = descriptor.idProduct;
    descriptors.releaseNumber = descriptor.bcdDevice;
    descriptors.manufacturerIndex = descriptor.iManufacturer;
    descriptors.productIndex = descriptor.iProduct;
    descriptors.serialNumberIndex = descriptor.iSerialNumber;
    std::array<std::uint8_t, kPortsMax> ports{};
    const int count = libusb_get_port_numbers(device, ports.data(), static_cast<int>(ports.size()));
    if (count > 0) descriptors.ports.assign(ports.begin(), ports.begin() + count);
    return true;
}

constexpr std::size_t kLocationLevels = 6; // nibbles of a location below its bus

} // namespace

std::uint32_t DeviceDescriptors::locationID() const {
    std::uint32_t location = std::uint32_t{busNumber} << 24U;
    unsigned shift = 24;
    for (const std::uint8_t port : ports) {
        if (shift == 0) break; // six nibbles are all there is room for
        shift -= 4;
        location |= (port & 0x0FU) << shift;
        // Some root hubs have more ports than a nibble tells apart; the last nibble is free on all but the deepest bus.
        if (port > 0x0FU && ports.size() < kLocationLevels) location |= port >> 4U;
    }
    return location;
}

std::string DeviceDescriptors::locationText() const {
    std::string text = std::to_string(busNumber);
    char separator = '-';
    for (const std::uint8_t port : ports) {
        text += separator + std::to_string(port);
        separator = '.';
    }
    return text;
}

std::string DeviceDescriptors::key() const {
    return formatted("%.4X%.4X%.8X", unsigned{vendor}, unsigned{product}, locationID());
}

std::string DeviceDescriptors::nodePath() const {
    return formatted("/dev/bus/usb/%03u/%03u", unsigned{busNumber}, unsigned{address});
}

std::optional<std::vector<InterfaceDescriptors>> readPrinterInterfaces(libusb_device* device,
                                                                       DeviceDescriptors& deviceDescriptors) {
    std::vector<InterfaceDescriptors> interfaces;
    libusb_config_descriptor* config = nullptr;
    if (!readDevice(device, deviceDescriptors) || libusb_get_active_config_descriptor(device, &config) != 0)
        return std::nullopt;
    deviceDescriptors.configurationValue = config->bConfigurationValue;
    for (int i = 0; i < config->bNumInterfaces; ++i) {
        const libusb_interface_descriptor* setting = activeSetting(config->interface[i]);
        if (setting == nullptr || setting->bInterfaceClass != LIBUSB_CLASS_PRINTER) continue;
        InterfaceDescriptors descriptors;
        descriptors.number = setting->bInterfaceNumber;
        descriptors.alternate = setting->bAlternateSetting;
        descriptors.interfaceClass = setting->bInterfaceClass;
        descriptors.interfaceSubClass = setting->bInterfaceSubClass;
        for (int e = 0; e < setting->bNumEndpoints; ++e)
            descriptors.pipes.push_back(pipeProperties(setting->endpoint[e]));
        interfaces.push_back(std::move(descriptors));
    }
    libusb_free_config_descriptor(config);
    return interfaces;
}

DescriptorValues descriptorValues(const DeviceDescriptors& device, const InterfaceDescriptors& interface) {
    return {.vendor = device.vendor,
            .product = device.product,
            .releaseNumber = device.releaseNumber,
            .locationID = device.locationID(),
            .configurationValue = device.configurationValue,
            .interfaceNumber = interface.number,
            .alternateSetting = interface.alternate,
            .interfaceClass = interface.interfaceClass,
            .interfaceSubClass = interface.interfaceSubClass,
            .pipes = interface.pipes};
}

} // namespace zul
