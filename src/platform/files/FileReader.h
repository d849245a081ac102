// Reads regular files whole. Other kinds are refused: opening a pipe could block the reader, and opening a device could
// have an effect. Reports why a file cannot be read, and the identity of the file it has read. Any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>

namespace zul {

/// Changes when a file is written to or replaced. Times in nanoseconds since 1970.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t size = 0;
    std::int64_t modified = 0;
    std::int64_t changed = 0;
    bool operator==(const FileIdentity&) const = default;
};

/// The contents were read, or why not.
enum class FileResult {
    contents,
    missing,
    notAFile, // a folder, a pipe, a device
    tooLarge,
    unreadable
};

/// The result of one read.
struct FileReading {
    FileResult result = FileResult::missing;
    Data contents = {};
    /// Identifies these contents as long as it stays the same. nullopt if the file was written to while it was read, or
    /// so recently that a further change might not alter its times.
    std::optional<FileIdentity> identity = std::nullopt;
};

class FileReader {
  public:
    /// largest: in bytes, below the largest std::ptrdiff_t; a longer file yields tooLarge.
    explicit FileReader(std::size_t largest = kLargestFile) : _largest(largest) {}
    virtual ~FileReader() = default;

    /// Identity of the regular file at path (symbolic links are followed); nullopt if there is none. Does not open the
    /// file.
    virtual std::optional<FileIdentity> identityOf(const std::filesystem::path& path) const;
    /// Opens the file once and reads to its end, even if the file grows meanwhile.
    virtual FileReading read(const std::filesystem::path& path) const;

    /// Far more than any firmware, far less than would exhaust a small machine.
    static constexpr std::size_t kLargestFile = 256 * 1024 * 1024;

  protected:
    /// read(2); replaced in tests.
    virtual std::ptrdiff_t readSome(int descriptor, std::uint8_t* buffer, std::size_t size) const;
    /// Nanoseconds since 1970.
    virtual std::int64_t now() const;

  private:
    FileResult readWhole(int descriptor, std::size_t expected, Data& contents) const;

    const std::size_t _largest;
};

} // namespace zul
