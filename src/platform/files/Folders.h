// The folders of the person who runs the program: home, settings, and what is kept from one run to the next. One rule
// for all: the variable of the folder's kind if it holds an absolute path, otherwise the usual place below the home
// folder. Any thread.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>

namespace zul {

/// Who asks for a folder, so that tests can choose it. A relative path in a variable would depend on where the program
/// is started, and is ignored.
struct FolderUser {
    bool isRoot = false;
    std::string configHome{}; // XDG_CONFIG_HOME
    std::string stateHome{};  // XDG_STATE_HOME
    std::string home{};
};
/// This process's user and environment.
FolderUser currentFolderUser();

/// The home folder, from HOME or else from the user database; empty when neither has it.
std::string homeFolder();
/// The path with its leading "~" (as a whole, or before a slash) replaced by the home folder. Everything else stays as
/// it is given: only the system knows where a link leads.
std::string pathWithHome(const std::string& path);

/// For settings: zul-printer-utility in XDG_CONFIG_HOME, otherwise in ~/.config; empty without a home folder. Does not
/// create it.
std::filesystem::path configFolder(const FolderUser& user = currentFolderUser());

/// For files that the program keeps (the window's log, the history of updates): zul-printer-utility in XDG_STATE_HOME,
/// otherwise in /var/lib for root and in ~/.local/state for everybody else; empty without a home folder. Root follows
/// XDG_STATE_HOME only if root owns it: carried along by sudo, it names the folder of another user, who could not write
/// what root has made there. Does not create it.
std::filesystem::path stateFolder(const FolderUser& user = currentFolderUser());

/// Creates the folder and its missing parents, for root with mode 0755, otherwise 0700. An existing folder keeps its
/// mode.
std::error_code createStateFolder(const std::filesystem::path& folder);

} // namespace zul
