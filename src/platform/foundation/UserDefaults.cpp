// Reads, changes and writes the settings file under one lock. Called by the session at its start, by the engine, and by
// "zulctl defaults"; any thread.
#include "platform/foundation/UserDefaults.h"

#include "platform/files/Files.h"
#include "platform/files/Folders.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/LocalizedFormat.h"

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

namespace zul {

namespace fs = std::filesystem;
using nlohmann::json;

struct UserDefaults::Values {
    json root = json::object();
};

namespace {

std::optional<std::string> storedText(const json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_boolean() || value.is_number()) return value.dump();
    return std::nullopt;
}

} // namespace

UserDefaults::UserDefaults(fs::path file)
    : _file(file.empty() ? file : fs::absolute(file)), _values(std::make_unique<Values>()) {
    if (!_file.empty()) read();
}

UserDefaults::~UserDefaults() = default;

fs::path UserDefaults::standardFile() {
    const fs::path folder = configFolder();
    return folder.empty() ? fs::path{} : folder / "defaults.json";
}

void UserDefaults::read() {
    std::error_code error;
    if (!fs::exists(fs::symlink_status(_file, error))) {
        if (error && error != std::errc::no_such_file_or_directory) {
            _mayWrite = false;
            _readError = localizedFormat("The settings file %s cannot be reached (%s). Check the rights of its folder; "
                                         "until then changes last for this run only.",
                                         _file.string(), error.message());
        }
        return;
    }
    const auto contents = contentsOfFile(_file);
    if (!contents) {
        _mayWrite = false;
        _readError = localizedFormat("The settings file %s cannot be read. Check its rights; until then changes last "
                                     "for this run only.",
                                     _file.string());
        return;
    }
    json root = json::parse(*contents, nullptr, /*allow_exceptions=*/false);
    if (root.is_object()) {
        _values->root = std::move(root);
        return;
    }
    const fs::path kept = freePathLike(_file.string() + ".damaged");
    fs::rename(_file, kept, error);
    _mayWrite = !error;
    _readError = _mayWrite ? localizedFormat("The settings file %s is damaged. It was kept as %s; new settings were "
                                             "begun. Repair it and restore it, or delete it.",
                                             _file.string(), kept.string())
                           : localizedFormat("The settings file %s is damaged. It could not be renamed (%s) and was "
                                             "not changed; changes last for this run only. Repair or delete it.",
                                             _file.string(), error.message());
}

bool UserDefaults::write() {
    if (_file.empty()) return true;
    if (!_mayWrite) return false;
    std::error_code error;
    fs::create_directories(_file.parent_path(), error); // the next step reports a failure
    fs::path target = _file;
    if (fs::is_symlink(_file, error)) target = fs::weakly_canonical(_file, error); // keep the link, replace the file
    if (error || target.empty()) target = _file;
    // Bytes that are not UTF-8 are replaced: dump() would throw for them.
    const std::string text = _values->root.dump(4, ' ', false, json::error_handler_t::replace) + '\n';
    const std::error_code failure = replaceFile(target, text, FileAccess::owner);
    _writeError = !failure ? std::string{}
                           : localizedFormat("The settings file %s cannot be written (%s). Check the rights of its "
                                             "folder and the free space; the change lasts for this run only.",
                                             _file.string(), failure.message());
    return !failure;
}

std::optional<std::string> UserDefaults::stringForKey(const std::string& key) const {
    const std::scoped_lock lock(_mutex);
    const auto found = _values->root.find(key);
    return found == _values->root.end() ? std::nullopt : storedText(*found);
}

bool UserDefaults::boolForKey(const std::string& key) const {
    const auto text = stringForKey(key);
    return text && boolValue(*text);
}

template <class Value> bool UserDefaults::set(const std::string& key, const Value& value) {
    const std::scoped_lock lock(_mutex);
    const json stored(value);
    const auto found = _values->root.find(key);
    // After a failed write the file may lack the value although it is known here: it is written again.
    const bool isInFile = _mayWrite && _writeError.empty();
    if (isInFile && found != _values->root.end() && *found == stored) return true;
    _values->root[key] = stored;
    return write();
}

bool UserDefaults::setString(const std::string& key, const std::string& value) {
    return set(key, value);
}

bool UserDefaults::setBool(const std::string& key, bool value) {
    return set(key, value);
}

bool UserDefaults::remove(const std::string& key) {
    const std::scoped_lock lock(_mutex);
    if (_values->root.erase(key) == 0) return false;
    (void)write(); // a failure is available from lastError()
    return true;
}

std::map<std::string, std::string> UserDefaults::all() const {
    const std::scoped_lock lock(_mutex);
    std::map<std::string, std::string> texts;
    for (const auto& [key, value] : _values->root.items()) {
        if (const auto text = storedText(value)) texts[key] = *text;
    }
    return texts;
}

std::string UserDefaults::lastError() const {
    const std::scoped_lock lock(_mutex);
    return _readError.empty() || _writeError.empty() ? _readError + _writeError : _readError + ' ' + _writeError;
}

} // namespace zul
