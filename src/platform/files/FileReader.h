// Reads files whole, in one go, and only regular files: opening a pipe could keep the reader waiting, and opening a
// device could do something. Reports why a file cannot be read, and whose contents it has read. Any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>

namespace zul {

/// What changes when a file is written to or another one takes its place. Times in nanoseconds since 1970.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t size = 0;
    std::int64_t modified = 0;
    std::int64_t changed = 0;
    bool operator==(const FileIdentity&) const = default;
};

enum class FileResult {
    contents,
    missing,
    notAFile, // a folder, a pipe, a device
    tooLarge,
    unreadable
};

struct FileReading {
    FileResult result = FileResult::missing;
    Data contents = {};
    /// Whose contents these are for as long as it stays the same. Nullopt when the file was written to while it was
    /// read, or so shortly before that a further change might not show in its times.
    std::optional<FileIdentity> identity = std::nullopt;
};

class FileReader {
  public:
    /// largest: in bytes, below the largest std::ptrdiff_t; a longer file is not read.
    explicit FileReader(std::size_t largest = kLargestFile) : _largest(largest) {}
    virtual ~FileReader() = default;

    /// Of the regular file that path leads to (symbolic links are followed); nullopt when there is none. Opens nothing.
    virtual std::optional<FileIdentity> identityOf(const std::filesystem::path& path) const;
    /// Opens the file once and reads it to its end, wherever that is by then.
    virtual FileReading read(const std::filesystem::path& path) const;

    /// Far more than any firmware, far less than would exhaust a small machine.
    static constexpr std::size_t kLargestFile = 256 * 1024 * 1024;

  protected:
    /// read(2); tests put their own in its place.
    virtual std::ptrdiff_t readSome(int descriptor, std::uint8_t* buffer, std::size_t size) const;
    /// Nanoseconds since 1970.
    virtual std::int64_t now() const;

  private:
    FileResult readWhole(int descriptor, std::size_t expected, Data& contents) const;

    const std::size_t _largest;
};

} // namespace zul
