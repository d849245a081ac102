// Descriptors to facts. libusb answers all of this from its cache and from sysfs.
#include "usb/libusb/InterfaceFacts.h"

#include "platform/foundation/Format.h"

#include <algorithm>
#include <array>
#include <libusb.h>

namespace zul {

namespace {

constexpr std::size_t kPortsMax = 7; // the deepest path that USB allows

PipeProperties pipeProperties(const libusb_endpoint_descriptor& endpoint) {
    PipeProperties pipe;
    const bool in = (endpoint.bEndpointAddress & LIBUSB_ENDPOINT_DIR_MASK) == LIBUSB_ENDPOINT_IN;
    pipe.direction = in ? PipeDirection::in : PipeDirection::out;
    pipe.number = endpoint.bEndpointAddress & LIBUSB_ENDPOINT_ADDRESS_MASK;
    pipe.transferType = endpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK;
    pipe.maxPacketSize = endpoint.wMaxPacketSize & 0x07FFU; // the bits above count extra transactions
    pipe.interval = endpoint.bInterval;
    return pipe;
}

// The alternate setting that is active once we hold the interface: the kernel goes back to number 0 when it takes its
// own driver off, so a setting that this driver chose does not count.
const libusb_interface_descriptor* activeSetting(const libusb_interface& interface) {
    const auto* begin = interface.altsetting;
    const auto* end = begin + interface.num_altsetting;
    const auto* found = std::find_if(begin, end, [](const auto& setting) { return setting.bAlternateSetting == 0; });
    if (found != end) return found;
    return begin == end ? nullptr : begin;
}

bool readDevice(libusb_device* device, DeviceFacts& facts) {
    libusb_device_descriptor descriptor{};
    if (libusb_get_device_descriptor(device, &descriptor) != 0) return false;
    facts.busNumber = libusb_get_bus_number(device);
    facts.address = libusb_get_device_address(device);
    facts.vendor = descriptor.idVendor;
    facts.product = descriptor.idProduct;
    facts.releaseNumber = descriptor.bcdDevice;
    facts.manufacturerIndex = descriptor.iManufacturer;
    facts.productIndex = descriptor.iProduct;
    facts.serialNumberIndex = descriptor.iSerialNumber;
    std::array<std::uint8_t, kPortsMax> ports{};
    const int count = libusb_get_port_numbers(device, ports.data(), static_cast<int>(ports.size()));
    if (count > 0) facts.ports.assign(ports.begin(), ports.begin() + count);
    return true;
}

constexpr std::size_t kLocationLevels = 6; // nibbles of a location below its bus

} // namespace

std::uint32_t DeviceFacts::locationID() const {
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

std::string DeviceFacts::locationText() const {
    std::string text = std::to_string(busNumber);
    char separator = '-';
    for (const std::uint8_t port : ports) {
        text += separator + std::to_string(port);
        separator = '.';
    }
    return text;
}

std::string DeviceFacts::nodePath() const {
    return formatted("/dev/bus/usb/%03u/%03u", unsigned{busNumber}, unsigned{address});
}

std::optional<std::vector<InterfaceFacts>> readPrinterInterfaces(libusb_device* device, DeviceFacts& deviceFacts) {
    std::vector<InterfaceFacts> interfaces;
    libusb_config_descriptor* config = nullptr;
    if (!readDevice(device, deviceFacts) || libusb_get_active_config_descriptor(device, &config) != 0)
        return std::nullopt;
    deviceFacts.configurationValue = config->bConfigurationValue;
    for (int i = 0; i < config->bNumInterfaces; ++i) {
        const libusb_interface_descriptor* setting = activeSetting(config->interface[i]);
        if (setting == nullptr || setting->bInterfaceClass != LIBUSB_CLASS_PRINTER) continue;
        InterfaceFacts facts;
        facts.number = setting->bInterfaceNumber;
        facts.alternate = setting->bAlternateSetting;
        facts.interfaceClass = setting->bInterfaceClass;
        facts.interfaceSubClass = setting->bInterfaceSubClass;
        for (int e = 0; e < setting->bNumEndpoints; ++e) facts.pipes.push_back(pipeProperties(setting->endpoint[e]));
        interfaces.push_back(std::move(facts));
    }
    libusb_free_config_descriptor(config);
    return interfaces;
}

} // namespace zul
