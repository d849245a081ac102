// The folders of the user: home, settings, and state kept between runs. One rule for all: the XDG variable of the
// folder's kind if it is an absolute path, otherwise the default below the home folder. Any thread.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>

namespace zul {

/// The user and environment that decide the folders, so that tests can choose them. A relative path in a variable would
/// depend on the working directory and is ignored.
struct FolderUser {
    bool isRoot = false;
    std::string configHome{}; // XDG_CONFIG_HOME
    std::string stateHome{};  // XDG_STATE_HOME
    std::string home{};
};
/// This process's user and environment.
FolderUser currentFolderUser();

/// The home folder from HOME or else from the user database; empty if neither has one.
std::string homeFolder();
/// The path with a leading "~" (alone or before a slash) replaced by the home folder. The rest is unchanged: ".." is
/// not resolved, because only the system knows where a link leads.
std::string pathWithHome(const std::string& path);

/// For settings: zul-printer-utility in XDG_CONFIG_HOME, otherwise in ~/.config; empty without a home folder. Does not
/// create it.
std::filesystem::path configFolder(const FolderUser& user = currentFolderUser());

/// For files that the programs keep (the window's log, the history of updates): zul-printer-utility in XDG_STATE_HOME,
/// otherwise in /var/lib for root and in ~/.local/state for other users; empty without a home folder. Root uses
/// XDG_STATE_HOME only if root owns that folder: with a variable passed on by sudo, root would create files in another
/// user's folder that this user cannot write. Does not create it.
std::filesystem::path stateFolder(const FolderUser& user = currentFolderUser());

/// Creates the folder and its missing parents, with mode 0755 for root and 0700 otherwise. An existing folder keeps its
/// mode. Returns the error of the failed step, or success.
std::error_code createStateFolder(const std::filesystem::path& folder);

} // namespace zul
