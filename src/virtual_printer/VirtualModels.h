// What the virtual printers know about themselves: one row per model. Any thread. Kept apart from the program's own
// table on purpose: a printer that took its data from the program could not show that they are wrong there.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace zul {

/// How a model answers questions about its colour tables.
enum class VirtualTables { single, byNumber, byNumberAndMedia };

struct VirtualModel {
    std::string_view name;
    std::uint16_t productID;
    std::string_view firmware;     // what it has when it is new
    std::string_view tableVersion; // of the tables that it has when it is new
    VirtualTables tables;
    std::string_view intermediateFirmware; // shown between two restarts of its own after an image; mostly none
};

/// All models, in the order of the help.
std::span<const VirtualModel> virtualModels();
/// Null for an unknown name. Upper and lower case are the same.
const VirtualModel* virtualModelNamed(std::string_view name);

} // namespace zul
