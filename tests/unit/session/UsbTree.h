// The kernel's list of USB devices and of processes, in a temporary folder.
#pragma once

#include "support/TemporaryFolder.h"
#include "usb/libusb/SystemFolders.h"

#include <filesystem>
#include <fstream>
#include <string>

namespace zul::test {

struct UsbTree {
    UsbTree() {
        std::filesystem::create_directories(folder / "sys/bus/usb/devices");
        std::filesystem::create_directories(folder / "proc");
    }
    SystemFolders folders() const {
        return {.sys = (folder / "sys").string(),
                .dev = (folder / "dev").string(),
                .proc = (folder / "proc").string(),
                .run = (folder / "run").string()};
    }
    void addDevice(const std::string& location, const std::string& vendor, const std::string& product, int address) {
        const std::filesystem::path device = folder / "sys/bus/usb/devices" / location;
        std::filesystem::create_directories(device);
        std::ofstream(device / "idVendor") << vendor << '\n';
        std::ofstream(device / "idProduct") << product << '\n';
        std::ofstream(device / "busnum") << location.substr(0, location.find('-')) << '\n';
        std::ofstream(device / "devnum") << address << '\n';
    }
    void addInterface(const std::string& name, const std::string& driver) {
        const std::filesystem::path interface = folder / "sys/bus/usb/devices" / name;
        std::filesystem::create_directories(interface);
        if (!driver.empty()) {
            std::filesystem::create_directory_symlink("../../../../bus/usb/drivers/" + driver, interface / "driver");
        }
    }
    // The sysfs entry of the kernel's printer driver, and its node.
    std::string addDriverNode(const std::string& interface, const std::string& name) {
        std::filesystem::create_directories(folder / "sys/bus/usb/devices" / interface / "usbmisc" / name);
        std::filesystem::create_directories(folder / "dev/usb");
        return folder.write("dev/usb/" + name, "").string();
    }
    void addProcess(int pid, const std::string& name, const std::string& file = {}) {
        const std::filesystem::path process = folder / ("proc/" + std::to_string(pid));
        std::filesystem::create_directories(process / "fd");
        std::ofstream(process / "comm") << name << '\n';
        if (!file.empty()) std::filesystem::create_symlink(file, process / "fd/3");
    }
    TemporaryFolder folder;
};

} // namespace zul::test
