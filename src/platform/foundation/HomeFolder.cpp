// Shells expand "~" only in front of a word, so "--log=~/x" comes as it is.
#include "platform/foundation/HomeFolder.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace zul {

std::string homeFolder() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> texts(16384); // more than any entry needs; a longer one counts as none
    ::getpwuid_r(::getuid(), &entry, texts.data(), texts.size(), &found);
    return found != nullptr && found->pw_dir != nullptr ? found->pw_dir : "";
}

std::string pathWithHome(const std::string& path) {
    if (path != "~" && !path.starts_with("~/")) return path;
    const std::string home = homeFolder();
    return home.empty() ? path : home + path.substr(1);
}

} // namespace zul
