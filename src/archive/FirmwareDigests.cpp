// Reads and writes the digest file.
// Read by FirmwareArchive and at the start of a run, written by "archive digest"; any thread.
#include "archive/FirmwareDigests.h"

#include "platform/files/FileReader.h"
#include "platform/foundation/JsonFile.h"

#include <filesystem>
#include <optional>
#include <string>
#include <variant>

namespace zul {

namespace {

constexpr const char* kSampleKey = "sample";

FirmwareDigests withoutDigests(FirmwareDigests::State state, const std::string& problem) {
    return {.problem = problem, .state = state};
}

} // namespace

std::string FirmwareDigests::digestOf(const std::string& fileName) const {
    const auto found = digests.find(fileName);
    return found == digests.end() ? std::string() : found->second;
}

FirmwareDigests readFirmwareDigests(const std::filesystem::path& archiveFolder) {
    std::optional<FileIdentity> identity;
    return readFirmwareDigests(archiveFolder, FileReader(), identity);
}

FirmwareDigests readFirmwareDigests(const std::filesystem::path& archiveFolder, const FileReader& reader,
                                    std::optional<FileIdentity>& identity) {
    using State = FirmwareDigests::State;
    identity.reset();
    if (archiveFolder.empty()) return withoutDigests(State::noFolder, "there are no firmware files");
    const std::filesystem::path path = archiveFolder / kDigestFileName;
    FileReading reading = reader.read(path);
    if (reading.result == FileResult::missing) {
        return withoutDigests(State::missing, "there is no file " + path.string());
    }
    if (reading.result != FileResult::contents) {
        return withoutDigests(State::unreadable, "the file " + path.string() + " cannot be read");
    }
    const JsonFile file = jsonFileFromData(reading.contents, path);
    if (!file.problem.empty()) return withoutDigests(State::damaged, file.problem);
    FirmwareDigests result;
    for (const auto& [name, value] : file.values) {
        if (const auto* digest = std::get_if<std::string>(&value)) result.digests[name] = *digest;
        if (name == kSampleKey && std::holds_alternative<bool>(value)) result.isSample = std::get<bool>(value);
    }
    // Only for contents that could be parsed: a damaged file is read again at the next check.
    identity = reading.identity;
    return result;
}

bool writeFirmwareDigests(const std::filesystem::path& archiveFolder, const FirmwareDigests& digests) {
    JsonFile file;
    for (const auto& [name, digest] : digests.digests) file.values[name] = digest;
    if (digests.isSample) file.values[kSampleKey] = true;
    return writeJsonFile(archiveFolder / kDigestFileName, file);
}

} // namespace zul
