// The commands that a printer knows, by their texts. Any thread.
#pragma once

#include <span>
#include <string_view>

namespace zul {

/// All of them, in the order of their numbers.
std::span<const std::string_view> virtualCommandTexts();

/// Whether the printer answers a command of this text.
bool virtualCommandHasAnswer(std::string_view text);

} // namespace zul
