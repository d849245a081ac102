// The required digests of the archive's files. They are supplied in one file beside the firmware files. Any thread.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace zul {

class FileReader;
struct FileIdentity;

/// Name of the digest file in an archive folder.
inline constexpr const char* kDigestFileName = "digests.json";

/// The contents of the digest file, or the reason why there are none.
struct FirmwareDigests {
    enum class State { read, noFolder, missing, unreadable, damaged };

    std::map<std::string, std::string> digests = {}; // by file name
    /// The archive holds this project's own sample files, which only virtual printers may receive.
    bool isSample = false;
    /// Why the digest file could not be read, for people; empty if it was read.
    std::string problem = {};
    State state = State::read;

    /// The digest that the file must have; empty if none is listed.
    std::string digestOf(const std::string& fileName) const;
};

/// Never throws: a missing or damaged digest file yields no digests, so that no file matches.
FirmwareDigests readFirmwareDigests(const std::filesystem::path& archiveFolder);
/// The same with a given reader. identity: set to that of the digest file; nullopt if it must be read each time.
FirmwareDigests readFirmwareDigests(const std::filesystem::path& archiveFolder, const FileReader& reader,
                                    std::optional<FileIdentity>& identity);

/// Replaces the digest file. Returns false if it could not be written; the old file is then unchanged.
bool writeFirmwareDigests(const std::filesystem::path& archiveFolder, const FirmwareDigests& digests);

} // namespace zul
