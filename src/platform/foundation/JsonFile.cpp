// Reads and writes the archive's digest file.
// Called by the archive and the command line, on any thread.
#include "platform/foundation/JsonFile.h"

#include "platform/files/Files.h"
#include "platform/foundation/Data.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <variant>

namespace zul {

JsonFile jsonFileFromData(const Data& contents, const std::filesystem::path& file) {
    JsonFile result;
    const auto json = nlohmann::json::parse(contents, nullptr, /*allow_exceptions=*/false);
    if (!json.is_object()) {
        result.problem = "the file " + file.string() + " is damaged";
        return result;
    }
    for (const auto& [name, value] : json.items()) {
        if (value.is_boolean()) result.values[name] = value.get<bool>();
        if (value.is_string()) result.values[name] = value.get<std::string>();
    }
    return result;
}

bool writeJsonFile(const std::filesystem::path& file, const JsonFile& contents) {
    nlohmann::json json = nlohmann::json::object();
    for (const auto& [name, value] : contents.values) {
        std::visit([&json, key = name](const auto& held) { json[key] = held; }, value);
    }
    return !replaceFile(file, json.dump(2) + '\n', FileAccess::everyone);
}

} // namespace zul
