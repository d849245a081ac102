// Operator texts with values in them. Only for source files. Any thread.
#pragma once

#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"

#include <string>
#include <utility>

namespace zul {

/// Fills the places of a text ("%@", "%s", "%d", "%.2f") in order. A translation whose places do not fit the values is
/// not used: the operator then reads the English text rather than none.
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

/// The localised text for an English one, with its places filled.
template <class... Arguments>
std::string localizedFormat(const Bundle& bundle, const char* key, const Arguments&... arguments) {
    return filledText(bundle.localizedString(key), key, arguments...);
}
template <class... Arguments> std::string localizedFormat(const char* key, const Arguments&... arguments) {
    return filledText(Bundle::localized(key), key, arguments...);
}

/// The same for a text with a number that decides its form; the number fills the first place.
template <class... Arguments>
std::string localizedPluralFormat(const char* singular, const char* plural, unsigned long number,
                                  const Arguments&... arguments) {
    return filledText(Bundle::localizedPlural(singular, plural, number), number == 1 ? singular : plural, number,
                      arguments...);
}

} // namespace zul
