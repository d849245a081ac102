// Byte buffers and their conversion to text and numbers. Any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zul {

using Data = std::vector<std::uint8_t>;
/// Shared, constant bytes; null if there are none.
using SharedData = std::shared_ptr<const Data>;

/// The bytes of text.
inline Data dataFromText(std::string_view text) {
    return Data(text.begin(), text.end());
}

/// The bytes before the first NUL as text; nullopt if they are not valid UTF-8.
std::optional<std::string> stringFromNulTerminatedUTF8(const Data& data);
/// All bytes as text, NULs included; nullopt if they are not valid UTF-8.
std::optional<std::string> stringFromUTF8(std::string_view bytes);
/// The bytes as valid UTF-8 text: invalid bytes and NULs become the replacement character. For text that must be stored
/// whatever it contains.
std::string repairedUTF8(std::string_view bytes);

/// The text without white space and line ends at both ends.
std::string trimmedWhitespaceAndNewlines(const std::string& text);

/// The leading integer (after white space and a sign); the rest is ignored; 0 if there is none.
std::int64_t integerValue(const std::string& text);
/// The leading decimal number; the rest is ignored; 0.0 if there is none. Independent of the locale.
double doubleValue(const std::string& text);
/// True for a leading Y, y, T, t or a number other than 0.
bool boolValue(const std::string& text);

} // namespace zul
