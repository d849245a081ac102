// Every operation takes the inner lock for its own duration and calls no other code while holding it. Filled on a
// printer's command queue, read on the main queue.
#include "Classes/DeviceInfo.h"

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace zul {

namespace {

template <class Kind> std::optional<Kind> valueOfKind(const DeviceInfo::Entries& entries, const std::string& key) {
    const auto found = entries.find(key);
    if (found == entries.end()) return std::nullopt;
    const Kind* value = std::get_if<Kind>(&found->second);
    return value == nullptr ? std::nullopt : std::optional<Kind>(*value);
}

struct Describe {
    std::string operator()(const std::string& text) const { return '"' + text + '"'; }
    std::string operator()(std::int64_t number) const { return std::to_string(number); }
    std::string operator()(bool flag) const { return flag ? "1" : "0"; }
    std::string operator()(const std::vector<std::string>& list) const {
        std::string text = "(";
        for (const std::string& item : list) text += (text.size() > 1 ? ", \"" : "\"") + item + '"';
        return text + ")";
    }
};

} // namespace

std::size_t DeviceInfo::count() const {
    const std::scoped_lock lock(_mutex);
    return _entries.size();
}

bool DeviceInfo::contains(const std::string& key) const {
    const std::scoped_lock lock(_mutex);
    return _entries.contains(key);
}

std::optional<std::string> DeviceInfo::string(const std::string& key) const {
    const std::scoped_lock lock(_mutex);
    return valueOfKind<std::string>(_entries, key);
}

std::optional<std::int64_t> DeviceInfo::integer(const std::string& key) const {
    const std::scoped_lock lock(_mutex);
    return valueOfKind<std::int64_t>(_entries, key);
}

std::optional<bool> DeviceInfo::boolean(const std::string& key) const {
    const std::scoped_lock lock(_mutex);
    return valueOfKind<bool>(_entries, key);
}

std::optional<std::vector<std::string>> DeviceInfo::strings(const std::string& key) const {
    const std::scoped_lock lock(_mutex);
    return valueOfKind<std::vector<std::string>>(_entries, key);
}

void DeviceInfo::set(const std::string& key, Value value) {
    if (!isMutable()) return;
    const std::scoped_lock lock(_mutex);
    _entries[key] = std::move(value);
}

void DeviceInfo::setString(const std::string& key, const std::optional<std::string>& value) {
    if (value) {
        set(key, *value);
    } else {
        remove(key);
    }
}

void DeviceInfo::remove(const std::string& key) {
    if (!isMutable()) return;
    const std::scoped_lock lock(_mutex);
    _entries.erase(key);
}

void DeviceInfo::addEntries(const DeviceInfo& other) {
    if (!isMutable()) return;
    const Entries added = other.entries(); // never two locks at once
    const std::scoped_lock lock(_mutex);
    for (const auto& [key, value] : added) _entries[key] = value;
}

DeviceInfo::Entries DeviceInfo::entries() const {
    const std::scoped_lock lock(_mutex);
    return _entries;
}

std::string DeviceInfo::description() const {
    std::string text = "{";
    // Over a copy, so that the lock is not held while the text is made.
    for (const auto& [key, value] : entries()) text += " " + key + " = " + std::visit(Describe{}, value) + ";";
    return text + " }";
}

} // namespace zul
