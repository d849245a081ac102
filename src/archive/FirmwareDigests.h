// The digests that the archive's files must have: supplied with the files, in one file beside them. Any thread.
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

struct FirmwareDigests {
    enum class State { read, noFolder, missing, unreadable, damaged };

    std::map<std::string, std::string> digests = {}; // by file name
    /// The archive is made by this project for trying out, and fit for virtual printers only.
    bool isSample = false;
    /// Why the file could not be read, in plain words; empty when it was.
    std::string problem = {};
    State state = State::read;

    /// The digest that the file must have; empty when there is none.
    std::string digestOf(const std::string& fileName) const;
};

/// Never throws: a missing or damaged digest file gives no digests, so that no file matches.
FirmwareDigests readFirmwareDigests(const std::filesystem::path& archiveFolder);
/// The same through a reader. identity: set to that of the digest file, nullopt if it has to be read each time.
FirmwareDigests readFirmwareDigests(const std::filesystem::path& archiveFolder, const FileReader& reader,
                                    std::optional<FileIdentity>& identity);

/// False when the file could not be written; the old one is then still there.
bool writeFirmwareDigests(const std::filesystem::path& archiveFolder, const FirmwareDigests& digests);

} // namespace zul
