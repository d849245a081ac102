// Whole files: reads a file at once, and replaces one so that a crash leaves either the old or the new contents. Any
// thread.
#pragma once

#include "platform/foundation/Data.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <system_error>

namespace zul {

/// All bytes of a regular file; nullopt if there is no such file or it cannot be read. Pipes and devices are refused,
/// so the call never blocks on one.
std::optional<Data> contentsOfFile(const std::filesystem::path& file);

/// The same as text; empty on failure. For the small files of sysfs, procfs and the like.
std::string textOfFile(const std::filesystem::path& file);
/// The text before the first line end; empty on failure.
std::string firstLineOfFile(const std::filesystem::path& file);

/// Read permission of a file that replaceFile() creates.
enum class FileAccess {
    owner,   // mode 0600
    everyone // mode 0666 without the bits of the process's umask
};

/// Replaces the file's contents in one step: readers see the old or the new contents, and so does a restart after a
/// power loss. The folder must exist; a symbolic link is replaced, not followed. On an error the old file is unchanged.
std::error_code replaceFile(const std::filesystem::path& file, std::string_view contents, FileAccess access);

/// wished if no file has that path, otherwise the first free one of path-2, path-3, …: keeps a file without replacing
/// an earlier one.
std::filesystem::path freePathLike(const std::filesystem::path& wished);

} // namespace zul
