// The folder for what the programs keep from one run to the next and nobody edits by hand: the window's log and the
// history of updates. Any thread.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>

namespace zul {

/// What decides about the folder, so that tests can choose it.
struct StateFolderUser {
    bool isRoot = false;
    std::string stateHome{}; // XDG_STATE_HOME; a relative path does not count
    std::string home{};
};

/// zul-printer-utility in XDG_STATE_HOME, else in /var/lib for root and in ~/.local/state for everybody else. Root
/// follows XDG_STATE_HOME only where root owns it: carried along by sudo, it names the folder of another user, who
/// could not write what root has made there. Empty when there is no home. Does not create the folder.
std::filesystem::path stateFolder(const StateFolderUser& user);
/// The same for this process.
std::filesystem::path stateFolder();

/// Creates the folder and what is missing above it, for root with mode 0755, otherwise 0700. A folder that is there
/// keeps its mode.
std::error_code createStateFolder(const std::filesystem::path& folder);

} // namespace zul
