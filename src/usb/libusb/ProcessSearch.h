// The processes that have a file open, as the system reports it.
#pragma once

#include "platform/usb/PrinterReservations.h"
#include "usb/libusb/SystemFolders.h"

#include <string>
#include <vector>

namespace zul {

/// One process that has the file open.
struct FoundProcess {
    int pid = 0;
    std::string name; // as the kernel keeps it: 15 characters at most

    bool operator==(const FoundProcess&) const = default;
};

/// The processes other than this one that have the file open, by process id. Processes of other users are seen only
/// with the right to look into them. Walks through all processes of the machine: tens of milliseconds where there are
/// many. Any thread, but not for the main queue.
std::vector<FoundProcess> processesWithOpen(const SystemFolders& folders, const std::string& file);

/// The one of them that most probably holds the device: other programs come before this project's own, which keep a
/// device's node open without using the interface. Kind unknown when there is none, otherwise as given.
InterfaceHolder probableHolder(const std::vector<FoundProcess>& processes, InterfaceHolder::Kind kind);

} // namespace zul
