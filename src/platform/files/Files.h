// Whole files: reading one in one go, and replacing one so that a crash leaves either the old contents or the new. Any
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

/// All bytes of a regular file, however many; nullopt when there is no such file or it cannot be read. Never waits for
/// a pipe or a device: those are not read.
std::optional<Data> contentsOfFile(const std::filesystem::path& file);

/// The same as text, for the small files in which the kernel and the system describe themselves; empty on failure.
std::string textOfFile(const std::filesystem::path& file);
/// The text up to the first line end; empty on failure.
std::string firstLineOfFile(const std::filesystem::path& file);

/// Who may read a file that replaceFile() makes.
enum class FileAccess {
    owner,   // mode 0600
    everyone // mode 0666 less the process's mask
};

/// Puts the contents in place of the file in one step: readers see the old contents or the new, and a power cut leaves
/// one of both. The folder must exist; a symbolic link is replaced, not followed. On an error the old file is
/// unchanged.
std::error_code replaceFile(const std::filesystem::path& file, std::string_view contents, FileAccess access);

/// The wished path if nothing has it yet, otherwise the first of path-2, path-3, … that is free: for what is kept aside
/// without losing an earlier one.
std::filesystem::path freePathLike(const std::filesystem::path& wished);

} // namespace zul
