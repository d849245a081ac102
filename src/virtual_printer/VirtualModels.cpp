// The table of models and the look-up by name.
// Constant; used by the settings and the printers on any thread.
#include "virtual_printer/VirtualModels.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <span>
#include <string_view>

namespace zul {

namespace {

constexpr auto kModels = std::to_array<VirtualModel>({
    {"VK14", 0x0003, "VK14 01.60", "0160", VirtualTables::single, ""},
    {"VK18", 0x0004, "VK18 01.29", "0129", VirtualTables::single, ""},
    {"VK-RZ7", 0x0005, "VK-RZ7 02.03", "0200", VirtualTables::single, "RZ7_ALLFWU_2.05"},
    {"VK18DUP", 0x0008, "VK18DUP 1.39PRN", "0129", VirtualTables::single, ""},
    {"VK26", 0x8B01, "VK26 01.51", "0110", VirtualTables::byNumber, ""},
    {"VK28", 0x9001, "VK28 01.04", "0100", VirtualTables::byNumberAndMedia, ""},
});

bool sameLetter(char one, char other) {
    return std::toupper(static_cast<unsigned char>(one)) == std::toupper(static_cast<unsigned char>(other));
}

} // namespace

std::span<const VirtualModel> virtualModels() {
    return kModels;
}

const VirtualModel* virtualModelNamed(std::string_view name) {
    const auto found = std::ranges::find_if(
        kModels, [&](const VirtualModel& model) { return std::ranges::equal(model.name, name, sameLetter); });
    return found == kModels.end() ? nullptr : &*found;
}

} // namespace zul
