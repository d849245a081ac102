#include "platform/foundation/UserDefaults.h"

#include "platform/foundation/Bundle.h"
#include "platform/foundation/HomeFolder.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/foundation/StateFolder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace zul {

namespace fs = std::filesystem;
using nlohmann::json;

struct UserDefaults::Values {
    json root = json::object();
};

namespace {

std::string reason(int number) {
    return std::generic_category().message(number);
}

std::optional<std::string> textOf(const json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_boolean() || value.is_number()) return value.dump();
    return std::nullopt;
}

// The first of file.damaged, file.damaged-2, … that is free, so that an older damaged file is not lost either.
fs::path keepAside(const fs::path& file, std::error_code& error) {
    fs::path kept = file;
    kept += ".damaged";
    for (int number = 2; fs::exists(fs::symlink_status(kept)) && number < 1000; ++number) {
        kept = file;
        kept += ".damaged-" + std::to_string(number);
    }
    fs::rename(file, kept, error);
    return kept;
}

bool writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor, text.data(), text.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

// Puts the text in place of the file in one step. Answers the error number, 0 for success.
int replaceFile(const fs::path& file, const std::string& text) {
    std::string temporary = file.string() + ".XXXXXX"; // in the same folder: a rename must not cross file systems
    const int descriptor = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (descriptor < 0) return errno;
    int error = 0;
    if (!writeAll(descriptor, text) || ::fsync(descriptor) != 0) error = errno;
    if (::close(descriptor) != 0 && error == 0) error = errno;
    if (error == 0 && ::rename(temporary.c_str(), file.c_str()) != 0) error = errno;
    if (error != 0) {
        ::unlink(temporary.c_str());
        return error;
    }
    // The new name, too, shall survive a power cut; where a folder cannot be synced the file itself is still whole.
    if (const int folder = ::open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); folder >= 0) {
        (void)::fsync(folder);
        ::close(folder);
    }
    return 0;
}

} // namespace

UserDefaults::UserDefaults(fs::path file)
    : _file(file.empty() ? file : fs::absolute(file)), _values(std::make_unique<Values>()) {
    if (!_file.empty()) read();
}

UserDefaults::~UserDefaults() = default;

fs::path UserDefaults::standardFile() {
    const fs::path name = fs::path("zul-printer-utility") / "defaults.json";
    // A relative folder would depend on where the program is started, so it does not count.
    if (const char* folder = std::getenv("XDG_CONFIG_HOME"); folder != nullptr && *folder == '/') return folder / name;
    const std::string home = homeFolder();
    return home.empty() ? fs::path{} : home / fs::path(".config") / name;
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
    const auto contents = Bundle::contentsOfFile(_file);
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
    const fs::path kept = keepAside(_file, error);
    _mayWrite = !error;
    _readError = _mayWrite ? localizedFormat("The settings file %s is damaged. It was kept as %s; the settings start "
                                             "afresh. Repair it and put it back, or delete it.",
                                             _file.string(), kept.string())
                           : localizedFormat("The settings file %s is damaged. It could not be renamed (%s) and was "
                                             "left alone; changes last for this run only. Repair or delete it.",
                                             _file.string(), error.message());
}

bool UserDefaults::write() {
    if (_file.empty()) return true;
    if (!_mayWrite) return false;
    std::error_code error;
    fs::create_directories(_file.parent_path(), error); // a failure shows at the next step
    fs::path target = _file;
    if (fs::is_symlink(_file, error)) target = fs::weakly_canonical(_file, error); // keep the link, replace the file
    if (error || target.empty()) target = _file;
    const std::string text = _values->root.dump(4, ' ', false, json::error_handler_t::replace) + '\n';
    const int number = replaceFile(target, text);
    _writeError = number == 0 ? std::string{}
                              : localizedFormat("The settings file %s cannot be written (%s). Check the rights of its "
                                                "folder and the free space; the change lasts for this run only.",
                                                _file.string(), reason(number));
    return number == 0;
}

std::optional<std::string> UserDefaults::stringForKey(const std::string& key) const {
    const std::scoped_lock lock(_mutex);
    const auto found = _values->root.find(key);
    return found == _values->root.end() ? std::nullopt : textOf(*found);
}

bool UserDefaults::boolForKey(const std::string& key) const {
    const auto text = stringForKey(key);
    return text && boolValue(*text);
}

template <class Value> bool UserDefaults::set(const std::string& key, const Value& value) {
    const std::scoped_lock lock(_mutex);
    const json stored(value);
    const auto found = _values->root.find(key);
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
    (void)write(); // lastError() tells
    return true;
}

std::map<std::string, std::string> UserDefaults::all() const {
    const std::scoped_lock lock(_mutex);
    std::map<std::string, std::string> texts;
    for (const auto& [key, value] : _values->root.items()) {
        if (const auto text = textOf(value)) texts[key] = *text;
    }
    return texts;
}

std::string UserDefaults::lastError() const {
    const std::scoped_lock lock(_mutex);
    return _readError.empty() || _writeError.empty() ? _readError + _writeError : _readError + ' ' + _writeError;
}

} // namespace zul
