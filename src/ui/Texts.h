// Operator texts for widgets: the English text is the key and its own default. GUI thread.
#pragma once

#include "platform/foundation/Bundle.h"
#include "platform/foundation/PrintableText.h"

#include <QString>
#include <optional>
#include <string>

namespace zul::ui {

/// Parts of most texts come from printers: what would turn the direction of the rest, or is no character, shows as "?".
inline QString qtext(const std::string& text) {
    return QString::fromStdString(printable(text));
}
/// Nothing is shown as an empty text.
inline QString qtext(const std::optional<std::string>& text) {
    return text ? qtext(*text) : QString();
}
/// The text in the operator's language.
inline QString localized(const char* key) {
    return qtext(Bundle::localized(key));
}

/// Words that are part of sentences elsewhere, as a sentence of their own.
inline QString asSentence(const std::string& words) {
    QString sentence = qtext(words);
    return sentence.isEmpty() ? sentence : sentence.replace(0, 1, sentence.at(0).toUpper());
}

} // namespace zul::ui
