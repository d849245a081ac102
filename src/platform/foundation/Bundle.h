// The program's bundled data: versions, texts, resources and the firmware archive.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace zul {

/// Marks an English text in a table for the translation catalogues; it is translated where it is shown.
constexpr const char* operatorText(const char* text) {
    return text;
}

/// Any thread, but call setInfo(), setTranslator() and withholdArchive() before other threads use it.
class Bundle {
  public:
    /// resources: folder with the program's resources. archive: folder with the firmware files and their digest file.
    Bundle(std::filesystem::path resources, std::filesystem::path archive);

    /// The bundle of the running program. Its resources are in ../share/zul-printer-utility from the program, both in a
    /// build tree and installed. The archive is <resources>/firmware unless namedArchive is given.
    static Bundle mainBundle(const std::filesystem::path& namedArchive = {});

    /// "CFBundleShortVersionString" (2.06), "CFBundleVersion", "CFBundleName".
    std::optional<std::string> objectForInfoDictionaryKey(const std::string& key) const;
    /// nullopt removes the key. For tests.
    void setInfo(const std::string& key, const std::optional<std::string>& value);

    /// pathForResource:ofType:  Path of name.type in the archive folder, otherwise in the resources; nullopt if neither
    /// has it.
    std::optional<std::filesystem::path> pathForResource(const std::string& name, const std::string& type) const;

    /// localizedStringForKey:value:table:  The translation of key (an English text) in the current language; without a
    /// translation value, or key if value is empty.
    std::string localizedString(const std::string& key, const std::string& value = {}) const;
    /// The same without a bundle.
    static std::string localized(const char* key);
    /// The plural form of a text for number: singular is the key, plural the English form for all other numbers.
    static std::string localizedPlural(const char* singular, const char* plural, unsigned long number);
    /// Installs the translation functions (the window installs gettext, tests their own). Null: no translation.
    using Translator = std::string (*)(const char* key);
    using PluralTranslator = std::string (*)(const char* singular, const char* plural, unsigned long number);
    static void setTranslator(Translator translator, PluralTranslator pluralTranslator = nullptr);

    /// Empty: no firmware files are available.
    const std::filesystem::path& archiveFolder() const { return _archive; }
    /// From now on no firmware file is found.
    void withholdArchive() { _archive.clear(); }
    /// The folder that was passed to the constructor.
    const std::filesystem::path& resourcesFolder() const { return _resources; }

  private:
    std::filesystem::path _resources;
    std::filesystem::path _archive;
    std::map<std::string, std::string> _info;
};

} // namespace zul
