// Called for the settings, the history of updates, the logs, and for paths of command lines: shells expand "~" only at
// the start of a word, so "--log=~/x" arrives unexpanded. Any thread.
#include "platform/files/Folders.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace zul {

namespace fs = std::filesystem;

namespace {

constexpr const char* kName = "zul-printer-utility";

bool isRoot() {
    return ::geteuid() == 0;
}

std::string textOfVariable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

fs::path belowHome(const FolderUser& user, const char* usualPlace) {
    return user.home.empty() ? fs::path{} : fs::path(user.home) / usualPlace / kName;
}

// For a folder that does not exist yet, its nearest existing parent decides.
bool belongsToRoot(fs::path folder) {
    struct stat entry {};
    // Ends at the root folder, which always exists.
    while (::stat(folder.c_str(), &entry) != 0) {
        if (errno != ENOENT || !folder.has_relative_path()) return false;
        folder = folder.parent_path();
    }
    return entry.st_uid == 0;
}

} // namespace

FolderUser currentFolderUser() {
    return {.isRoot = isRoot(),
            .configHome = textOfVariable("XDG_CONFIG_HOME"),
            .stateHome = textOfVariable("XDG_STATE_HOME"),
            .home = homeFolder()};
}

std::string homeFolder() {
    if (const std::string home = textOfVariable("HOME"); !home.empty()) return home;
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> texts(16384); // larger than any entry; with a longer one the home folder is unknown
    ::getpwuid_r(::getuid(), &entry, texts.data(), texts.size(), &found);
    return found != nullptr && found->pw_dir != nullptr ? found->pw_dir : "";
}

std::string pathWithHome(const std::string& path) {
    if (path != "~" && !path.starts_with("~/")) return path;
    const std::string home = homeFolder();
    return home.empty() ? path : home + path.substr(1);
}

fs::path configFolder(const FolderUser& user) {
    const fs::path configHome = user.configHome;
    return configHome.is_absolute() ? configHome / kName : belowHome(user, ".config");
}

fs::path stateFolder(const FolderUser& user) {
    const fs::path stateHome = user.stateHome;
    if (stateHome.is_absolute() && (!user.isRoot || belongsToRoot(stateHome))) return stateHome / kName;
    return user.isRoot ? fs::path("/var/lib") / kName : belowHome(user, ".local/state");
}

std::error_code createStateFolder(const fs::path& folder) {
    const mode_t mode = isRoot() ? 0755 : 0700;
    // Step by step, because the mode has to apply to each folder that is made.
    fs::path upTo;
    for (const fs::path& name : folder) {
        upTo /= name;
        std::error_code error;
        if (fs::is_directory(upTo, error)) continue;
        // Another process may create it at the same time.
        if (::mkdir(upTo.c_str(), mode) != 0 && errno != EEXIST) return {errno, std::generic_category()};
    }
    std::error_code error;
    if (fs::is_directory(folder, error)) return {};
    return error ? error : std::make_error_code(std::errc::not_a_directory);
}

} // namespace zul
