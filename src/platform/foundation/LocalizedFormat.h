// Translated texts with inserted values. Include it in source files only. Any thread.
#pragma once

#include "platform/foundation/Bundle.h"

#include <fmt/printf.h>
#include <string>

namespace zul {

/// Replaces the placeholders of a text ("%@", "%s", "%d", "%.2f") in order. If the placeholders of the translation do
/// not fit the values, the English text is used.
template <class... Arguments>
std::string filledText(const std::string& translation, const char* english, const Arguments&... arguments) {
    const auto fill = [&](std::string format) {
        for (auto at = format.find("%@"); at != std::string::npos; at = format.find("%@", at)) format[at + 1] = 's';
        return fmt::sprintf(format, arguments...);
    };
    try {
        return fill(translation);
    } catch (const fmt::format_error&) {
        return fill(english);
    }
}

/// The translation of key with its placeholders replaced.
template <class... Arguments>
std::string localizedFormat(const Bundle& bundle, const char* key, const Arguments&... arguments) {
    return filledText(bundle.localizedString(key), key, arguments...);
}
/// The same for code without a bundle.
template <class... Arguments> std::string localizedFormat(const char* key, const Arguments&... arguments) {
    return filledText(Bundle::localized(key), key, arguments...);
}

/// The same for a text whose form depends on a number; the number replaces the first placeholder.
template <class... Arguments>
std::string localizedPluralFormat(const char* singular, const char* plural, unsigned long number,
                                  const Arguments&... arguments) {
    return filledText(Bundle::localizedPlural(singular, plural, number), number == 1 ? singular : plural, number,
                      arguments...);
}

} // namespace zul
