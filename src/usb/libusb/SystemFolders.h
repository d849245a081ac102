// Where the kernel and the system's services show themselves as files. Tests put folders of their own in their place.
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
