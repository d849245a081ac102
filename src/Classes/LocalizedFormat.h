// Operator texts with values in them. Only for source files. Any thread.
#pragma once

#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"

#include <string>

namespace zul {

/// The localised text for an English one, with its "%@" and "%.2f" filled in order. A translation whose places do not
/// fit the values is not used: the operator then reads the English text rather than none.
template <class... Arguments>
std::string localizedFormat(const Bundle& bundle, const char* key, const Arguments&... arguments) {
    const auto fill = [&](std::string format) {
        for (auto at = format.find("%@"); at != std::string::npos; at = format.find("%@", at)) format[at + 1] = 's';
        return fmt::sprintf(format, arguments...);
    };
    try {
        return fill(bundle.localizedString(key));
    } catch (const fmt::format_error&) {
        return fill(key);
    }
}

} // namespace zul
