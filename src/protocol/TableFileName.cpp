// The grammar of colour-table names. Called by the verdict, which compares versions, and by embedded printers, which
// are sent such a name before each table.
#include "protocol/TableFileName.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>

namespace zul {

namespace {

constexpr std::size_t kNumberDigits = 3;

// Removes the part after the last underscore from text and returns it; nullopt if there is no underscore.
std::optional<std::string_view> takeLastPart(std::string_view& text) {
    const auto underscore = text.rfind('_');
    if (underscore == std::string_view::npos) return std::nullopt;
    const std::string_view part = text.substr(underscore + 1);
    text = text.substr(0, underscore);
    return part;
}

bool isNumber(std::string_view text) {
    return text.size() == kNumberDigits && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

} // namespace

std::optional<TableFileName> parsedTableFileName(std::string_view name) {
    const auto version = takeLastPart(name);
    const auto number = version ? takeLastPart(name) : std::nullopt;
    if (!number || !isNumber(*number) || name.empty()) return std::nullopt;
    const std::string_view digits = version->substr(0, version->rfind('.'));
    if (digits.empty()) return std::nullopt;
    return TableFileName{.number = *number, .version = digits, .isForPP = name.ends_with("_PP")};
}

} // namespace zul
