// Shells expand "~" only in front of a word, so "--log=~/x" comes as it is.
#include "platform/foundation/HomeFolder.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace zul {

std::string homeFolder() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
    const passwd* entry = ::getpwuid(::getuid());
    return entry != nullptr && entry->pw_dir != nullptr ? entry->pw_dir : "";
}

std::string pathWithHome(const std::string& path) {
    if (path != "~" && !path.starts_with("~/")) return path;
    const std::string home = homeFolder();
    return home.empty() ? path : home + path.substr(1);
}

} // namespace zul
