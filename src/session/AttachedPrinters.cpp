// Reads the kernel's list of USB devices in sysfs. Called by the diagnosis before the session opens any printer, and by
// the failure texts.
// Any thread.
#include "session/AttachedPrinters.h"

#include "archive/ProductTable.h"
#include "platform/files/Files.h"
#include "platform/foundation/Format.h"
#include "usb/libusb/InterfaceDescriptors.h"
#include "usb/libusb/SystemFolders.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace zul {

namespace {

namespace fs = std::filesystem;

std::optional<unsigned> numberIn(const fs::path& file, int base) {
    const std::string text = firstLineOfFile(file);
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || end == text.data()) return std::nullopt;
    return number;
}

// "1-2.4": the bus, and the ports from its root hub outwards.
std::vector<std::uint8_t> portsOf(const std::string& location) {
    std::vector<std::uint8_t> ports;
    for (std::size_t at = location.find('-'); at != std::string::npos; at = location.find('.', at + 1)) {
        unsigned port = 0;
        std::from_chars(location.data() + at + 1, location.data() + location.size(), port);
        ports.push_back(static_cast<std::uint8_t>(port));
    }
    return ports;
}

std::vector<std::string> driversOf(const fs::path& devices, const std::string& location) {
    std::vector<std::string> drivers;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(devices, error)) {
        if (!entry.path().filename().string().starts_with(location + ":")) continue;
        // Interfaces without a driver have no such link.
        const fs::path driver = fs::read_symlink(entry.path() / "driver", error);
        if (!error) drivers.push_back(driver.filename().string());
    }
    return drivers;
}

} // namespace

std::vector<std::string> printerDriverNodes(const SystemFolders& folders, const std::string& location) {
    std::vector<std::string> nodes;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(folders.sys) / "bus/usb/devices", error)) {
        if (!entry.path().filename().string().starts_with(location + ":")) continue;
        for (const char* const kind : {"usbmisc", "usb"}) { // older kernels use the second name
            for (const fs::directory_entry& node : fs::directory_iterator(entry.path() / kind, error)) {
                const std::string name = node.path().filename().string();
                if (name.starts_with("lp")) nodes.push_back(folders.dev + "/usb/" + name);
            }
        }
    }
    std::ranges::sort(nodes);
    return nodes;
}

std::vector<AttachedPrinter> attachedPrinters(const SystemFolders& folders) {
    std::vector<AttachedPrinter> printers;
    const fs::path devices = fs::path(folders.sys) / "bus/usb/devices";
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(devices, error)) {
        const auto vendor = numberIn(entry.path() / "idVendor", 16);
        const auto product = numberIn(entry.path() / "idProduct", 16);
        const auto bus = numberIn(entry.path() / "busnum", 10);
        const auto address = numberIn(entry.path() / "devnum", 10);
        if (!vendor || !product || !bus || !address) continue; // an interface, or a device that is being detached
        if (!productVendorIDs().contains(static_cast<std::uint16_t>(*vendor))) continue;
        // For its key, which must be built like that of the bus.
        DeviceDescriptors device;
        device.busNumber = static_cast<std::uint8_t>(*bus);
        device.vendor = static_cast<std::uint16_t>(*vendor);
        device.product = static_cast<std::uint16_t>(*product);
        const std::string location = entry.path().filename().string();
        device.ports = portsOf(location);
        printers.push_back({.key = device.key(),
                            .location = location,
                            .node = folders.dev + formatted("/bus/usb/%.3u/%.3u", *bus, *address),
                            .vendor = device.vendor,
                            .product = device.product,
                            .drivers = driversOf(devices, location),
                            .driverNodes = printerDriverNodes(folders, location)});
    }
    std::ranges::sort(printers, {}, &AttachedPrinter::location);
    return printers;
}

} // namespace zul
