// Looks up resources and texts. The window or a test installs the translation functions once; texts are then looked up
// on any thread.
#include "platform/foundation/Bundle.h"

#include <atomic>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

namespace zul {

namespace fs = std::filesystem;

namespace {

std::atomic<Bundle::Translator> currentTranslator{nullptr};
std::atomic<Bundle::PluralTranslator> currentPluralTranslator{nullptr};

std::optional<fs::path> regularFile(const fs::path& path) {
    std::error_code error;
    return fs::is_regular_file(path, error) ? std::optional(path) : std::nullopt;
}

} // namespace

Bundle::Bundle(fs::path resources, fs::path archive) : _resources(std::move(resources)), _archive(std::move(archive)) {
    setInfo("CFBundleName", "ZUL Printer Utility");
    setInfo("CFBundleShortVersionString", ZUL_BUNDLE_SHORT_VERSION);
    setInfo("CFBundleVersion", ZUL_BUNDLE_VERSION);
}

Bundle Bundle::mainBundle(const fs::path& namedArchive) {
    std::error_code error;
    // Not the name on the command line, which may be relative, a link or free text.
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    const fs::path resources = (program.parent_path() / "../share/zul-printer-utility").lexically_normal();
    return Bundle(resources, namedArchive.empty() ? resources / "firmware" : namedArchive);
}

std::optional<std::string> Bundle::objectForInfoDictionaryKey(const std::string& key) const {
    const auto found = _info.find(key);
    return found == _info.end() ? std::nullopt : std::optional(found->second);
}

void Bundle::setInfo(const std::string& key, const std::optional<std::string>& value) {
    if (value) {
        _info[key] = *value;
    } else {
        _info.erase(key);
    }
}

std::optional<fs::path> Bundle::pathForResource(const std::string& name, const std::string& type) const {
    const std::string file = type.empty() ? name : name + '.' + type;
    if (file.empty()) return std::nullopt;
    for (const fs::path& folder : {_archive, _resources}) {
        if (folder.empty()) continue; // an empty path would mean the working directory
        if (const auto path = regularFile(folder / file)) return path;
    }
    return std::nullopt;
}

std::string Bundle::localizedString(const std::string& key, const std::string& value) const {
    if (const Translator translator = currentTranslator) {
        // Without a translation the catalogue returns the key: then the default is used.
        const std::string translated = translator(key.c_str());
        if (translated != key) return translated;
    }
    return value.empty() ? key : value;
}

std::string Bundle::localized(const char* key) {
    const Translator translator = currentTranslator;
    return translator ? translator(key) : key;
}

std::string Bundle::localizedPlural(const char* singular, const char* plural, unsigned long number) {
    if (const PluralTranslator translator = currentPluralTranslator) return translator(singular, plural, number);
    return number == 1 ? singular : plural;
}

void Bundle::setTranslator(Translator translator, PluralTranslator pluralTranslator) {
    currentTranslator = translator;
    currentPluralTranslator = pluralTranslator;
}

} // namespace zul
