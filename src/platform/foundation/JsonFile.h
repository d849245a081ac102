// A small file of names and values, as JSON: what the program is supplied with. Any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <filesystem>
#include <map>
#include <string>
#include <variant>

namespace zul {

struct JsonFile {
    std::map<std::string, std::variant<std::string, bool>> values; // other kinds are left out
    /// Why the contents are not such a file, for people; empty when they are.
    std::string problem;
};

/// Never throws; damaged contents give no values and a problem. file: where they were read, for the problem's text.
JsonFile jsonFileFromData(const Data& contents, const std::filesystem::path& file);

/// Replaces the file in one step. False when it could not be written; the old one is then unchanged.
bool writeJsonFile(const std::filesystem::path& file, const JsonFile& contents);

} // namespace zul
