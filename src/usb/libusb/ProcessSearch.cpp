// Looking through the open files of all processes, as /proc shows them. Called by handles after a refused claim and by
// the doctor, never for the main queue of a window.
#include "usb/libusb/ProcessSearch.h"

#include "platform/files/Files.h"
#include "platform/usb/PrinterReservations.h"
#include "usb/libusb/SystemFolders.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <dirent.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace zul {

namespace {

// The kernel cuts the names of programs to this many characters.
constexpr std::size_t kNameMax = 15;
constexpr std::array<const char*, 2> kOwnPrograms{"zulctl", "zul-printer-utility"};

template <class Visit> void forEachEntry(const std::string& folder, const Visit& visit) {
    DIR* const directory = ::opendir(folder.c_str());
    if (directory == nullptr) return; // it has ended, or is another user's
    while (const dirent* entry = ::readdir(directory)) {
        if (entry->d_name[0] != '.' && !visit(entry->d_name)) break;
    }
    ::closedir(directory);
}

bool isLinkTo(const std::string& link, const std::string& file) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = ::readlink(link.c_str(), target.data(), target.size());
    return length >= 0 && file.compare(0, std::string::npos, target.data(), static_cast<std::size_t>(length)) == 0;
}

bool hasOpen(const std::string& processFolder, const std::string& file) {
    bool found = false;
    const std::string folder = processFolder + "/fd";
    forEachEntry(folder, [&](const char* descriptor) {
        found = isLinkTo(folder + "/" + descriptor, file);
        return !found;
    });
    return found;
}

bool isOwnProgram(const FoundProcess& process) {
    return std::ranges::any_of(kOwnPrograms,
                               [&](const std::string& own) { return process.name == own.substr(0, kNameMax); });
}

} // namespace

std::vector<FoundProcess> processesWithOpen(const SystemFolders& folders, const std::string& file) {
    std::vector<FoundProcess> processes;
    forEachEntry(folders.proc, [&](const char* entry) {
        char* end = nullptr;
        const long pid = std::strtol(entry, &end, 10);
        if (*end != '\0' || pid <= 0 || pid == ::getpid()) return true;
        const std::string folder = folders.proc + "/" + entry;
        if (hasOpen(folder, file)) processes.push_back({static_cast<int>(pid), firstLineOfFile(folder + "/comm")});
        return true;
    });
    std::ranges::sort(processes, {}, &FoundProcess::pid);
    return processes;
}

InterfaceHolder probableHolder(const std::vector<FoundProcess>& processes, InterfaceHolder::Kind kind) {
    if (processes.empty()) return {};
    const auto other = std::ranges::find_if_not(processes, isOwnProgram);
    const FoundProcess& process = other != processes.end() ? *other : processes.front();
    InterfaceHolder holder;
    holder.kind = kind;
    holder.program = process.name;
    holder.pid = process.pid;
    return holder;
}

} // namespace zul
