// Writes the gadget's attributes to configfs and removes the gadget again.
// Called by GadgetConnection under its lock, on any thread.
#include "vkgadget/ConfigfsGadget.h"

#include "platform/files/ScopedFd.h"
#include "vkgadget/GadgetError.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/printf.h>
#include <iostream>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace zul {

namespace fs = std::filesystem;

namespace {

const fs::path kGadgets = "/sys/kernel/config/usb_gadget";

std::string hex(std::uint16_t number) {
    return fmt::sprintf("0x%04x", number);
}

void makeFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw GadgetError("cannot make " + folder.string() + ": " + error.message());
}

} // namespace

ConfigfsGadget::ConfigfsGadget(std::string name, const GadgetIdentity& identity)
    : _name(std::move(name)), _identity(identity), _folder(kGadgets / _name) {}

void ConfigfsGadget::write(const fs::path& file, const std::string& text) const {
    // In a single write call: configfs takes each call as a whole value.
    const ScopedFd fd(::open((_folder / file).c_str(), O_WRONLY | O_CLOEXEC));
    const ssize_t written = fd ? ::write(fd.get(), text.data(), text.size()) : -1;
    if (written == static_cast<ssize_t>(text.size())) return;
    const std::string reason = written < 0 ? std::strerror(errno) : "cut off";
    throw GadgetError("cannot write \"" + text + "\" to " + (_folder / file).string() + ": " + reason);
}

void ConfigfsGadget::create() {
    // Left by a process that was killed. The lock of the name shows that it is not in use.
    if (fs::exists(_folder)) removeFolders();
    _created = true;
    makeFolder(_folder);
    write("idVendor", hex(_identity.vendorID));
    write("idProduct", hex(_identity.productID));
    write("bcdDevice", "0x0100");
    write("bcdUSB", "0x0200");
    makeFolder(_folder / "strings/0x409");
    write("strings/0x409/manufacturer", _identity.manufacturer + "\n");
    write("strings/0x409/product", _identity.product + "\n");
    setSerialNumber(_identity.serialNumber);
    makeFolder(_folder / "functions" / ("ffs." + _name));
    makeFolder(_folder / "configs/c.1/strings/0x409");
    write("configs/c.1/strings/0x409/configuration", "printer\n");
    std::error_code error;
    fs::create_symlink(_folder / "functions" / ("ffs." + _name), _folder / "configs/c.1" / ("ffs." + _name), error);
    if (error) throw GadgetError("cannot link the function of gadget " + _name + ": " + error.message());
}

void ConfigfsGadget::setSerialNumber(const std::string& serialNumber) {
    // The line end is required: an empty text would cause no write at all.
    write("strings/0x409/serialnumber", serialNumber + "\n");
}

void ConfigfsGadget::plug(const std::string& udc) {
    write("UDC", udc + "\n");
    _plugged = true;
}

void ConfigfsGadget::unplug() {
    if (!_plugged) return;
    _plugged = false;
    // The kernel unbinds a gadget whose function is gone by itself, and then returns ENODEV.
    const ScopedFd fd(::open((_folder / "UDC").c_str(), O_WRONLY | O_CLOEXEC));
    if (fd && ::write(fd.get(), "\n", 1) < 0 && errno != ENODEV) {
        throw GadgetError("cannot unplug gadget " + _name + ": " + std::strerror(errno));
    }
}

void ConfigfsGadget::remove() {
    if (!_created) return;
    _created = false;
    try {
        unplug();
    } catch (const GadgetError& error) {
        std::cerr << "vkgadget: " << error.what() << '\n';
    }
    removeFolders();
    if (fs::exists(_folder)) std::cerr << "vkgadget: " << _folder.string() << " could not be removed\n";
}

void ConfigfsGadget::removeFolders() {
    // configfs requires this order: links before their targets. Attribute files disappear with their folder.
    std::error_code ignored;
    fs::remove(_folder / "configs/c.1" / ("ffs." + _name), ignored);
    for (const auto& folder : {std::string("configs/c.1/strings/0x409"), std::string("configs/c.1"),
                               "functions/ffs." + _name, std::string("strings/0x409"), std::string()}) {
        ::rmdir((_folder / folder).c_str());
    }
}

} // namespace zul
