// Texts of devices for terminals and windows. Any thread.
#pragma once

#include <string>
#include <string_view>

namespace zul {

/// The text without anything that commands a terminal or turns the direction of what follows: control characters (C0,
/// C1, DEL), direction marks, and bytes that are not UTF-8 show as "?". Line ends are kept.
std::string printable(std::string_view text);
/// The same for a text that is part of a line: line ends show as "?", too, so that no device writes lines of its own.
std::string printableInLine(std::string_view text);

/// JSON text in which the same characters are escapes: it means the same, and no terminal obeys it. Valid JSON
/// only.
std::string printableJson(std::string_view json);

} // namespace zul
