// Bytes, as they come from files and wires.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zul {

using Data = std::vector<std::uint8_t>;
/// Shared bytes that are never changed; null where there are none.
using SharedData = std::shared_ptr<const Data>;

inline Data dataFromText(std::string_view text) {
    return Data(text.begin(), text.end());
}

/// The bytes up to the first NUL as UTF-8 text; nullopt when they are not valid UTF-8.
std::optional<std::string> stringFromNulTerminatedUTF8(const Data& data);
/// The same for all bytes: NUL does not end them.
std::optional<std::string> stringFromUTF8(std::string_view bytes);
/// The bytes as valid UTF-8 text: what is not valid, and NUL, becomes the replacement character. For text that has to
/// be stored whatever it is.
std::string repairedUTF8(std::string_view bytes);

/// White space and line ends removed at both ends.
std::string trimmedWhitespaceAndNewlines(const std::string& text);

/// Leading digits (after white space and a sign), the rest ignored; 0 when there are none.
std::int64_t integerValue(const std::string& text);
/// Leading number with one point, the rest ignored; 0.0 when there is none. Independent of the locale.
double doubleValue(const std::string& text);
/// YES for leading Y, y, T, t or a number other than 0.
bool boolValue(const std::string& text);

} // namespace zul
