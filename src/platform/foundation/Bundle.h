// What the program carries with it: its versions, its texts, its resources and the firmware archive.
#pragma once

#include "platform/foundation/Data.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace zul {

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
    void setInfo(const std::string& key, const std::optional<std::string>& value);

    /// pathForResource:ofType:  The file name.type in the archive folder, then in the resources; nothing when there
    /// is none.
    std::optional<std::filesystem::path> pathForResource(const std::string& name, const std::string& type) const;
    /// The whole file; nothing when it is absent or cannot be read.
    static std::optional<Data> contentsOfFile(const std::filesystem::path& path);

    /// localizedStringForKey:value:table:  The operator's text for the key (an English text), from the catalogue of
    /// the current language; without one value, or the key when value is empty.
    std::string localizedString(const std::string& key, const std::string& value = {}) const;
    /// Replaces the look-up (the window installs gettext here; tests their own). Null: none.
    using Translator = std::string (*)(const char* key);
    static void setTranslator(Translator translator);

    const std::filesystem::path& archiveFolder() const { return _archive; }
    const std::filesystem::path& resourcesFolder() const { return _resources; }

  private:
    std::filesystem::path _resources;
    std::filesystem::path _archive;
    std::map<std::string, std::string> _info;
};

} // namespace zul
