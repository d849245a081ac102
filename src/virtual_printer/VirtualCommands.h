// The command texts that a virtual printer knows. Any thread.
#pragma once

#include <span>
#include <string_view>

namespace zul {

/// All command texts, in the order of their numbers.
std::span<const std::string_view> virtualCommandTexts();

/// Whether the printer replies to the command with this text.
bool virtualCommandHasAnswer(std::string_view text);

} // namespace zul
