// The device information of one printer: values under string keys. Shared between the printer's command queue, which
// fills it, and the main queue, which shows and saves it: every operation takes an inner lock, and calls no other code
// while holding it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace zul {

class DeviceInfo {
  public:
    using Value = std::variant<std::string, std::int64_t, bool, std::vector<std::string>>;
    using Entries = std::map<std::string, Value>;
    enum class Mutability { isMutable, isImmutable };

    /// An immutable one keeps these entries for good.
    explicit DeviceInfo(Entries entries = {}, Mutability mutability = Mutability::isMutable)
        : _entries(std::move(entries)), _mutability(mutability) {}

    /// Whether it takes changes. Fixed when it is made.
    bool isMutable() const { return _mutability == Mutability::isMutable; }
    std::size_t count() const;                   // of all keys
    bool contains(const std::string& key) const; // whatever the kind of its value
    /// nullopt when the key is absent or holds a value of another kind.
    std::optional<std::string> string(const std::string& key) const;
    std::optional<std::int64_t> integer(const std::string& key) const;
    std::optional<bool> boolean(const std::string& key) const;
    std::optional<std::vector<std::string>> strings(const std::string& key) const;

    /// An immutable dictionary ignores every change.
    void set(const std::string& key, Value value);
    /// nullopt removes the key.
    void setString(const std::string& key, const std::optional<std::string>& value);
    /// No effect for a key that is absent.
    void remove(const std::string& key);
    /// Takes over all entries of the other one; existing keys are overwritten.
    void addEntries(const DeviceInfo& other);

    /// A copy of all entries.
    Entries entries() const;
    /// For log lines: "{key = value; …}" in key order.
    std::string description() const;

  private:
    mutable std::mutex _mutex;
    Entries _entries;
    const Mutability _mutability;
};

using DeviceInfoPtr = std::shared_ptr<DeviceInfo>;

} // namespace zul
