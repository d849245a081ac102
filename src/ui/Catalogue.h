// The operator's language: gettext catalogues, whose keys are the English texts. Main thread, before the first text is
// shown.
#pragma once

#include <filesystem>
#include <string>

namespace zul::ui {

/// The name of the catalogues' files.
inline constexpr const char* kTextDomain = "zul-printer-utility";

/// Makes Bundle translate with the catalogues of this folder (LANGUAGE/LC_MESSAGES/zul-printer-utility.mo), into the
/// language of the environment (LANGUAGE, LC_ALL, LC_MESSAGES, LANG). Main thread, before other threads are started.
void useCatalogues(const std::filesystem::path& localeFolder);

/// The language of the catalogue in use, such as "de"; empty for English.
std::string catalogueLanguage();

/// Translates the toolkit's own texts (its file dialog) into the same language if its catalogue for that is installed.
/// After useCatalogues, when the application object exists.
void translateToolkit();

} // namespace zul::ui
