// Examines configfs and the device controllers of this machine. Called on the main queue at the start of vkgadget and
// when a printer returns on another controller.
#include "vkgadget/Host.h"

#include "platform/files/Files.h"
#include "platform/files/ScopedFd.h"
#include "vkgadget/GadgetError.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
#include <string>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace zul {

namespace fs = std::filesystem;

namespace {

const fs::path kConfigfs = "/sys/kernel/config";
const fs::path kUdcs = "/sys/class/udc";

bool isMounted(const fs::path& folder) {
    std::istringstream mounts(textOfFile("/proc/self/mounts"));
    std::string device, point, rest;
    while (mounts >> device >> point && std::getline(mounts, rest)) {
        if (point == folder.string()) return true;
    }
    return false;
}

std::vector<std::string> allUdcs() {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(kUdcs, error)) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

bool isFree(const std::string& udc) {
    return firstLineOfFile(kUdcs / udc / "function").empty();
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const auto& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

} // namespace

void checkHost() {
    if (::geteuid() != 0) throw GadgetError("only root can make a USB gadget: run it with sudo");
    if (!isMounted(kConfigfs)) {
        throw GadgetError("configfs is not mounted: mount -t configfs configfs " + kConfigfs.string());
    }
    if (!fs::exists(kConfigfs / "usb_gadget")) {
        throw GadgetError("the kernel's gadget framework is not loaded: modprobe libcomposite");
    }
}

std::vector<std::string> freeUdcs() {
    std::vector<std::string> names = allUdcs();
    std::erase_if(names, [](const std::string& udc) { return !isFree(udc); });
    return names;
}

std::string chooseUdc(const std::string& name) {
    const std::vector<std::string> all = allUdcs();
    if (all.empty()) {
        throw GadgetError("this machine has no USB device controller. A simulated one: modprobe dummy_hcd");
    }
    if (!name.empty()) {
        if (std::find(all.begin(), all.end(), name) == all.end()) {
            throw GadgetError("there is no USB device controller \"" + name + "\"; there are: " + joined(all));
        }
        if (!isFree(name)) throw GadgetError("the USB device controller " + name + " is in use by another gadget");
        return name;
    }
    const std::vector<std::string> available = freeUdcs();
    if (available.empty()) throw GadgetError("every USB device controller is in use: " + joined(all));
    return available.front();
}

ScopedFd lockName(const std::string& name) {
    const fs::path file = "/run/vkgadget-" + name + ".lock";
    ScopedFd lock(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!lock) throw GadgetError("cannot make " + file.string() + ": " + std::strerror(errno));
    if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        throw GadgetError("a gadget named \"" + name + "\" is already running; give this one another --name");
    }
    return lock;
}

} // namespace zul
