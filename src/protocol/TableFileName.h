// What the name of a colour-table file says. Pure, any thread.
#pragma once

#include <optional>
#include <string_view>

namespace zul {

/// The parts of "VK28_PP_600_0101.cwd".
struct TableFileName {
    std::string_view number;  // "600": the size of the print, three digits
    std::string_view version; // "0101"; not checked to be digits
    bool isForPP = false;     // the table of the other media, on models that have tables for two
};

/// nullopt if name is not MODEL_NUMBER_VERSION or MODEL_MEDIA_NUMBER_VERSION, with or without an extension. The parts
/// refer to name.
std::optional<TableFileName> parsedTableFileName(std::string_view name);

} // namespace zul
