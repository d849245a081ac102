// Makes texts from devices safe for terminals and windows. Any thread.
#pragma once

#include <string>
#include <string_view>

namespace zul {

/// The text with "?" for everything that controls a terminal or changes the text direction: control characters (C0, C1,
/// DEL), direction marks, and bytes that are not UTF-8. Line ends are kept.
std::string printable(std::string_view text);
/// The same for text within a line: line ends become "?", too, so that a device cannot add lines.
std::string printableInLine(std::string_view text);

/// JSON text with the same characters escaped: the value is unchanged, and a terminal ignores it. Valid JSON only.
std::string printableJson(std::string_view json);

} // namespace zul
