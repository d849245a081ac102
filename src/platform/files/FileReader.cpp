// Reads regular files whole and determines their identity.
// Called by FirmwareArchive for archive files and by contentsOfFile(), on the calling thread.
#include "platform/files/FileReader.h"

#include "platform/files/ScopedFd.h"
#include "platform/foundation/Data.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace zul {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
// File systems store times with a resolution of up to two seconds: a change within one step does not alter them.
constexpr std::int64_t kTimeStep = 3 * kNanosecondsPerSecond;
// Files of the kernel report length 0, and some change between two reads: one read must be enough.
constexpr std::size_t kSmallestBuffer = 4096;

std::int64_t nanoseconds(const timespec& time) {
    return time.tv_sec * kNanosecondsPerSecond + time.tv_nsec;
}

FileIdentity identityIn(const struct stat& status) {
    return {status.st_dev, status.st_ino, status.st_size, nanoseconds(status.st_mtim), nanoseconds(status.st_ctim)};
}

FileReading failure(int error) {
    const bool isMissing = error == ENOENT || error == ENOTDIR;
    return {isMissing ? FileResult::missing : FileResult::unreadable};
}

} // namespace

std::optional<FileIdentity> FileReader::identityOf(const std::filesystem::path& path) const {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return identityIn(status);
}

FileReading FileReader::read(const std::filesystem::path& path) const {
    struct stat before {};
    // Checked before opening: opening some devices has an effect.
    if (::stat(path.c_str(), &before) != 0) return failure(errno);
    if (!S_ISREG(before.st_mode)) return {FileResult::notAFile};
    // Without blocking: a pipe may have replaced the file since.
    const ScopedFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    // Again for the open file: the path may lead to another one by now.
    if (!file || ::fstat(file.get(), &before) != 0) return failure(errno);
    if (!S_ISREG(before.st_mode)) return {FileResult::notAFile};

    FileReading reading;
    reading.result = readWhole(file.get(), static_cast<std::size_t>(before.st_size), reading.contents);
    if (reading.result != FileResult::contents) return {reading.result};
    struct stat after {};
    if (::fstat(file.get(), &after) != 0) return reading;
    const FileIdentity identity = identityIn(after);
    const bool isSettled = now() - std::max(identity.modified, identity.changed) > kTimeStep;
    if (isSettled && identity == identityIn(before)) reading.identity = identity;
    return reading;
}

FileResult FileReader::readWhole(int descriptor, std::size_t expected, Data& contents) const {
    if (expected > _largest) return FileResult::tooLarge;
    // One byte more, so that the end is detected without a second allocation.
    contents.resize(expected == 0 ? std::min(kSmallestBuffer, _largest + 1) : expected + 1);
    std::size_t length = 0;
    for (;;) {
        if (length == contents.size()) contents.resize(std::min(2 * contents.size(), _largest + 1)); // the file grows
        const auto count = readSome(descriptor, contents.data() + length, contents.size() - length);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return FileResult::unreadable;
        if (count == 0) break;
        length += static_cast<std::size_t>(count);
        if (length > _largest) return FileResult::tooLarge;
    }
    contents.resize(length);
    return FileResult::contents;
}

std::ptrdiff_t FileReader::readSome(int descriptor, std::uint8_t* buffer, std::size_t size) const {
    return ::read(descriptor, buffer, size);
}

std::int64_t FileReader::now() const {
    timespec time{};
    ::clock_gettime(CLOCK_REALTIME, &time);
    return nanoseconds(time);
}

} // namespace zul
