// The folder for what the programs keep from one run to the next. Called by the window for its log, and by the history
// of updates, on any thread.
#include "platform/foundation/StateFolder.h"

#include "platform/foundation/HomeFolder.h"

#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace zul {

namespace fs = std::filesystem;

namespace {

bool isRoot() {
    return ::geteuid() == 0;
}

std::string textOfVariable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

// Of a folder that is still to be created, the one above decides.
bool belongsToRoot(fs::path folder) {
    struct stat entry {};
    while (::stat(folder.c_str(), &entry) != 0) {
        if (errno != ENOENT || !folder.has_relative_path()) return false;
        folder = folder.parent_path();
    }
    return entry.st_uid == 0;
}

} // namespace

fs::path stateFolder(const StateFolderUser& user) {
    const fs::path name = "zul-printer-utility";
    const fs::path stateHome = user.stateHome;
    if (stateHome.is_absolute() && (!user.isRoot || belongsToRoot(stateHome))) return stateHome / name;
    if (user.isRoot) return fs::path("/var/lib") / name;
    return user.home.empty() ? fs::path{} : fs::path(user.home) / ".local/state" / name;
}

fs::path stateFolder() {
    return stateFolder({.isRoot = isRoot(), .stateHome = textOfVariable("XDG_STATE_HOME"), .home = homeFolder()});
}

std::error_code createStateFolder(const fs::path& folder) {
    const mode_t mode = isRoot() ? 0755 : 0700;
    fs::path upTo;
    for (const fs::path& name : folder) {
        upTo /= name;
        std::error_code error;
        if (fs::is_directory(upTo, error)) continue;
        // Another process may be creating it at the same time.
        if (::mkdir(upTo.c_str(), mode) != 0 && errno != EEXIST) return {errno, std::generic_category()};
    }
    std::error_code error;
    if (fs::is_directory(folder, error)) return {};
    return error ? error : std::make_error_code(std::errc::not_a_directory);
}

} // namespace zul
