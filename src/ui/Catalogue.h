// The operator's language: gettext catalogues under the English texts. Before the first text is shown.
#pragma once

#include "platform/foundation/Bundle.h"

#include <filesystem>
#include <string>

namespace zul::ui {

inline constexpr const char* kTextDomain = "zul-printer-utility";

/// Looks texts up in the catalogues of this folder (LANGUAGE/LC_MESSAGES/zul-printer-utility.mo), in the language of
/// the environment (LANGUAGE, LC_ALL, LC_MESSAGES, LANG). Main thread, before others are started.
void useCatalogues(const std::filesystem::path& localeFolder);

/// The language whose catalogue is in use, as in "de"; "" for English.
std::string catalogueLanguage();

/// The toolkit's own few texts ("Copy", the file dialog) in the same language, where its catalogues are installed.
/// After useCatalogues, with an application.
void translateToolkit();

} // namespace zul::ui
