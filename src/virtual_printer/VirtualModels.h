// What the virtual printers know about themselves: one row per model. Any thread. Kept apart from the program's own
// table on purpose: a printer that learned its facts from the program could not show that the program has them wrong.
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

std::span<const VirtualModel> virtualModels();
/// Null for an unknown name. The name counts in any case.
const VirtualModel* virtualModelNamed(std::string_view name);

} // namespace zul
