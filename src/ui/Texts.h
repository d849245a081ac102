// Operator texts for widgets: the English text is the key and its own default. GUI thread.
#pragma once

#include "platform/foundation/Bundle.h"

#include <QString>
#include <optional>
#include <string>

namespace zul::ui {

inline QString qtext(const std::string& text) {
    return QString::fromStdString(text);
}
/// Nothing is shown as an empty text.
inline QString qtext(const std::optional<std::string>& text) {
    return text ? QString::fromStdString(*text) : QString();
}
/// The text in the operator's language.
inline QString localized(const char* key) {
    return qtext(Bundle::localized(key));
}

} // namespace zul::ui
