// The digests that the archive's files must have: supplied with the files, in one file beside them. Any thread.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace zul {

/// Name of the digest file in an archive folder.
inline constexpr const char* kDigestFileName = "digests.json";

struct FirmwareDigests {
    std::map<std::string, std::string> digests; // by file name
    /// The archive is made by this project for trying out, and fit for virtual printers only.
    bool isSample = false;
    /// Why the file could not be read, in plain words; empty when it was.
    std::string problem;
};

/// Never throws: a missing or damaged digest file gives no digests, so that no file matches.
FirmwareDigests readFirmwareDigests(const std::filesystem::path& archiveFolder);

/// False when the file could not be written; the old one is then still there.
bool writeFirmwareDigests(const std::filesystem::path& archiveFolder, const FirmwareDigests& digests);

} // namespace zul
