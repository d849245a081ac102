// A small file of names and values, as JSON: what the program is supplied with. Any thread.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <variant>

namespace zul {

struct JsonFile {
    std::map<std::string, std::variant<std::string, bool>> values; // other kinds are left out
    /// Why the file could not be read, in plain words; empty when it was.
    std::string problem;
};

/// Never throws; a missing or damaged file has no values and a problem.
JsonFile readJsonFile(const std::filesystem::path& file);

/// Replaces the file in one step. False when it could not be written; the old one is then still there.
bool writeJsonFile(const std::filesystem::path& file, const JsonFile& contents);

} // namespace zul
