#include "ui/Catalogue.h"

#include <clocale>
#include <libintl.h>

namespace zul::ui {

namespace {

std::string translated(const char* key) {
    return *key == 0 ? "" : dgettext(kTextDomain, key); // the empty key is the catalogue's own header
}

std::string translatedPlural(const char* singular, const char* plural, unsigned long number) {
    return dngettext(kTextDomain, singular, plural, number);
}

} // namespace

void useCatalogues(const std::filesystem::path& localeFolder) {
    std::setlocale(LC_ALL, "");
    std::setlocale(LC_NUMERIC, "C"); // numbers on the wire and in files have a point
    bindtextdomain(kTextDomain, localeFolder.c_str());
    bind_textdomain_codeset(kTextDomain, "UTF-8");
    Bundle::setTranslator(translated, translatedPlural);
}

} // namespace zul::ui
