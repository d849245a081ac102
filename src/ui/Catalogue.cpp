// Connects Bundle, which looks up all texts, to gettext, and loads the toolkit's own translations. Main thread; main
// calls it before the window is built.
#include "ui/Catalogue.h"

#include "platform/foundation/Bundle.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QTranslator>
#include <clocale>
#include <filesystem>
#include <libintl.h>
#include <string>
#include <string_view>
#include <utility>

namespace zul::ui {

namespace {

std::string translated(const char* key) {
    return *key == 0 ? "" : dgettext(kTextDomain, key); // gettext returns the catalogue's header for an empty key
}

std::string translatedPlural(const char* singular, const char* plural, unsigned long number) {
    return dngettext(kTextDomain, singular, plural, number);
}

} // namespace

void useCatalogues(const std::filesystem::path& localeFolder) {
    std::setlocale(LC_ALL, "");
    std::setlocale(LC_NUMERIC, "C"); // numbers on the wire and in files use a decimal point
    bindtextdomain(kTextDomain, localeFolder.c_str());
    bind_textdomain_codeset(kTextDomain, "UTF-8");
    Bundle::setTranslator(translated, translatedPlural);
}

std::string catalogueLanguage() {
    static constexpr std::string_view kField = "Language: ";
    // The header of the catalogue that gettext has chosen names its language.
    const std::string header = dgettext(kTextDomain, "");
    const auto at = header.find(kField);
    if (at == std::string::npos) return "";
    const auto begin = at + kField.size();
    return header.substr(begin, header.find('\n', begin) - begin);
}

void translateToolkit() {
    static QTranslator* current = nullptr;
    if (current != nullptr) QCoreApplication::removeTranslator(current);
    delete std::exchange(current, new QTranslator(QCoreApplication::instance()));
    const QString file = "qtbase_" + QString::fromStdString(catalogueLanguage());
    if (current->load(file, QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
        QCoreApplication::installTranslator(current);
    }
}

} // namespace zul::ui
