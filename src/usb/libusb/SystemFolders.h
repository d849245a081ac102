// The folders in which the kernel and the system's services publish their state. Tests replace them with folders of
// their own.
#pragma once

#include <string>

namespace zul {

struct SystemFolders {
    std::string sys = "/sys";
    std::string dev = "/dev";
    std::string proc = "/proc";
    std::string run = "/run";
};

} // namespace zul
