#include "Classes/FirmwareDigests.h"

#include <fstream>
#include <nlohmann/json.hpp>

namespace zul {

namespace {
constexpr const char* kSampleKey = "sample";
}

FirmwareDigests readFirmwareDigests(const std::filesystem::path& archiveFolder) {
    FirmwareDigests result;
    const std::filesystem::path file = archiveFolder / kDigestFileName;
    std::ifstream stream(file);
    if (!stream) {
        result.problem = "there is no digest file " + file.string();
        return result;
    }
    const auto json = nlohmann::json::parse(stream, nullptr, /*allow_exceptions=*/false);
    if (!json.is_object()) {
        result.problem = "the digest file " + file.string() + " is damaged";
        return result;
    }
    for (const auto& [name, value] : json.items()) {
        if (name == kSampleKey) {
            result.isSample = value.is_boolean() && value.get<bool>();
        } else if (value.is_string()) {
            result.digests[name] = value.get<std::string>();
        }
    }
    return result;
}

bool writeFirmwareDigests(const std::filesystem::path& archiveFolder, const FirmwareDigests& digests) {
    nlohmann::json json = nlohmann::json::object();
    for (const auto& [name, digest] : digests.digests) json[name] = digest;
    if (digests.isSample) json[kSampleKey] = true;
    const std::filesystem::path file = archiveFolder / kDigestFileName;
    const std::filesystem::path next = archiveFolder / (std::string(kDigestFileName) + ".new");
    {
        std::ofstream stream(next, std::ios::trunc);
        stream << json.dump(2) << '\n';
        stream.flush();
        if (!stream) return false;
    }
    std::error_code error;
    std::filesystem::rename(next, file, error); // replaces the old file in one step
    return !error;
}

} // namespace zul
