// What the program carries with it: its versions, its texts, its resources and the firmware archive.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace zul {

/// Marks an English text of a table for the catalogues; where it is shown it is looked up.
constexpr const char* operatorText(const char* text) {
    return text;
}

/// Any thread, but setInfo(), setTranslator() and withholdArchive() only before other threads use it.
class Bundle {
  public:
    /// resources: the folder with the program's resources. archive: the folder with the firmware files and their
    /// digest file.
    Bundle(std::filesystem::path resources, std::filesystem::path archive);

    /// The resources of the running program: beside the build's bin folder (../share/zul-printer-utility), as in an
    /// installed tree. The archive is <resources>/firmware unless a folder is given.
    static Bundle mainBundle(const std::filesystem::path& namedArchive = {});

    /// "CFBundleShortVersionString" (2.06), "CFBundleVersion", "CFBundleName".
    std::optional<std::string> objectForInfoDictionaryKey(const std::string& key) const;
    /// nullopt removes the key (tests).
    void setInfo(const std::string& key, const std::optional<std::string>& value);

    /// pathForResource:ofType:  The file name.type in the archive folder, then in the resources; nullopt when there
    /// is none.
    std::optional<std::filesystem::path> pathForResource(const std::string& name, const std::string& type) const;

    /// localizedStringForKey:value:table:  The operator's text for the key (an English text), from the catalogue of
    /// the current language; without one value, or the key when value is empty.
    std::string localizedString(const std::string& key, const std::string& value = {}) const;
    /// The same look-up where no bundle is at hand.
    static std::string localized(const char* key);
    /// The form for number of a text that names one: singular is the key, plural the English form for the others.
    static std::string localizedPlural(const char* singular, const char* plural, unsigned long number);
    /// Replaces the look-up (the window installs gettext here; tests their own). Null: none.
    using Translator = std::string (*)(const char* key);
    using PluralTranslator = std::string (*)(const char* singular, const char* plural, unsigned long number);
    static void setTranslator(Translator translator, PluralTranslator pluralTranslator = nullptr);

    /// Empty: there are no firmware files.
    const std::filesystem::path& archiveFolder() const { return _archive; }
    /// From now on no firmware file is found.
    void withholdArchive() { _archive.clear(); }
    const std::filesystem::path& resourcesFolder() const { return _resources; }

  private:
    std::filesystem::path _resources;
    std::filesystem::path _archive;
    std::map<std::string, std::string> _info;
};

} // namespace zul
