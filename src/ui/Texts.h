// Operator texts for widgets: the English text is the key and its own default. GUI thread.
#pragma once

#include "platform/foundation/Bundle.h"
#include "platform/foundation/PrintableText.h"

#include <QString>
#include <optional>
#include <string>

namespace zul::ui {

/// A text for a widget. Parts of most texts come from printers, so characters that would change the writing direction
/// of the rest, and invalid ones, are shown as "?".
inline QString qtext(const std::string& text) {
    return QString::fromStdString(printable(text));
}
/// The same; empty if text is nullopt.
inline QString qtext(const std::optional<std::string>& text) {
    return text ? qtext(*text) : QString();
}
/// The text with this key in the operator's language.
inline QString localized(const char* key) {
    return qtext(Bundle::localized(key));
}

/// A text that is part of a sentence elsewhere, as a sentence of its own: with a capital letter.
inline QString asSentence(const std::string& text) {
    QString sentence = qtext(text);
    return sentence.isEmpty() ? sentence : sentence.replace(0, 1, sentence.at(0).toUpper());
}

/// The text with invisible places after each of these separators where a line may break: a long path has no blanks.
/// Only for drawing; what is copied or read aloud must not contain them.
inline QString breakable(QString text, QLatin1StringView separators = QLatin1StringView("/")) {
    for (const QChar separator : separators) text.replace(separator, QString(separator) + QChar(0x200B));
    return text;
}

} // namespace zul::ui
