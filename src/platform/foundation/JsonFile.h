// A small JSON file of names and values, such as the archive's digest file. Any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <filesystem>
#include <map>
#include <string>
#include <variant>

namespace zul {

/// The readable part of the file.
struct JsonFile {
    std::map<std::string, std::variant<std::string, bool>> values; // values of other types are skipped
    /// Why the contents are not such a file, for people; empty if they are.
    std::string problem;
};

/// Never throws: damaged contents yield no values and a problem. file: the path for the problem's text.
JsonFile jsonFileFromData(const Data& contents, const std::filesystem::path& file);

/// Replaces the file in one step. Returns false if it could not be written; the old file is then unchanged.
bool writeJsonFile(const std::filesystem::path& file, const JsonFile& contents);

} // namespace zul
