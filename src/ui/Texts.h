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

/// Words that also stand inside of sentences elsewhere, as a sentence of their own.
inline QString asSentence(const std::string& words) {
    QString sentence = qtext(words);
    return sentence.isEmpty() ? sentence : sentence.replace(0, 1, sentence.at(0).toUpper());
}

} // namespace zul::ui
