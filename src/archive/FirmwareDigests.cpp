#include "archive/FirmwareDigests.h"

#include "platform/foundation/JsonFile.h"

namespace zul {

namespace {
constexpr const char* kSampleKey = "sample";
}

FirmwareDigests readFirmwareDigests(const std::filesystem::path& archiveFolder) {
    FirmwareDigests result;
    if (archiveFolder.empty()) {
        result.problem = "there are no firmware files";
        return result;
    }
    const JsonFile file = readJsonFile(archiveFolder / kDigestFileName);
    result.problem = file.problem;
    for (const auto& [name, value] : file.values) {
        if (const auto* digest = std::get_if<std::string>(&value)) result.digests[name] = *digest;
        if (name == kSampleKey && std::holds_alternative<bool>(value)) result.isSample = std::get<bool>(value);
    }
    return result;
}

bool writeFirmwareDigests(const std::filesystem::path& archiveFolder, const FirmwareDigests& digests) {
    JsonFile file;
    for (const auto& [name, digest] : digests.digests) file.values[name] = digest;
    if (digests.isSample) file.values[kSampleKey] = true;
    return writeJsonFile(archiveFolder / kDigestFileName, file);
}

} // namespace zul
