// Called for files that are read or replaced as a whole: settings, digests, logs, kernel state. Archives use FileReader
// directly, which reports why a file cannot be read. Any thread.
#include "platform/files/Files.h"

#include "platform/files/FileReader.h"
#include "platform/files/ScopedFd.h"
#include "platform/foundation/Data.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace zul {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kAnySize = std::numeric_limits<std::ptrdiff_t>::max();

std::error_code lastError() {
    return {errno, std::generic_category()};
}

// In the same folder, because rename() must not cross file systems. Skips names of temporary files that a killed
// process has left.
ScopedFd makeTemporary(const fs::path& file, mode_t mode, fs::path& temporary) {
    for (int number = 1;; ++number) {
        temporary = file.string() + '.' + std::to_string(::getpid()) + '-' + std::to_string(number);
        ScopedFd made(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
        // O_EXCL: a file that another user has put there is never opened.
        if (made || errno != EEXIST) return made;
    }
}

bool writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor, text.data(), text.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

// Makes the new name survive a power loss, too. If the folder cannot be synced, the file itself is still whole.
void syncFolderOf(const fs::path& file) {
    const fs::path parent = file.parent_path();
    const ScopedFd folder(::open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder) (void)::fsync(folder.get());
}

} // namespace

std::optional<Data> contentsOfFile(const fs::path& file) {
    FileReading reading = FileReader(kAnySize).read(file);
    if (reading.result != FileResult::contents) return std::nullopt;
    return std::move(reading.contents);
}

std::string textOfFile(const fs::path& file) {
    const Data contents = contentsOfFile(file).value_or(Data{});
    return {contents.begin(), contents.end()};
}

std::string firstLineOfFile(const fs::path& file) {
    const std::string text = textOfFile(file);
    return text.substr(0, text.find('\n'));
}

std::error_code replaceFile(const fs::path& file, std::string_view contents, FileAccess access) {
    fs::path temporary;
    ScopedFd made = makeTemporary(file, access == FileAccess::owner ? 0600 : 0666, temporary);
    if (!made) return lastError();
    std::error_code error;
    // Synced before it is renamed: otherwise a power loss could leave the new name with no contents.
    if (!writeAll(made.get(), contents) || ::fsync(made.get()) != 0) error = lastError();
    // Some network file systems report a failed write only at the close.
    if (::close(made.release()) != 0 && !error) error = lastError();
    if (!error && ::rename(temporary.c_str(), file.c_str()) != 0) error = lastError();
    if (error) {
        ::unlink(temporary.c_str());
        return error;
    }
    syncFolderOf(file);
    return {};
}

fs::path freePathLike(const fs::path& wished) {
    std::error_code ignored; // a path that cannot be checked is taken as free: the next step reports the error
    fs::path path = wished;
    for (int number = 2; fs::exists(fs::symlink_status(path, ignored)); ++number) {
        path = wished.string() + '-' + std::to_string(number);
    }
    return path;
}

} // namespace zul
