// The data that the virtual printers report, one row per model. Any thread. Separate from the program's own table on
// purpose: a printer that used the program's data could not reveal that they are wrong.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace zul {

/// How a model replies to queries about its colour tables.
enum class VirtualTables { single, byNumber, byNumberAndMedia };

/// One row of the table.
struct VirtualModel {
    std::string_view name;
    std::uint16_t productID;
    std::string_view firmware;     // of a new printer
    std::string_view tableVersion; // of a new printer's tables
    VirtualTables tables;
    std::string_view intermediateFirmware; // reported between two restarts of its own after an image; mostly empty
};

/// All models, in the order of the help.
std::span<const VirtualModel> virtualModels();
/// The model with this name, in any case; null for an unknown one.
const VirtualModel* virtualModelNamed(std::string_view name);

} // namespace zul
