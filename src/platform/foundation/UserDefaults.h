// The user's settings in one JSON file. It is read once and replaced in one step whenever a value changes, so a crash
// loses no setting. A file that is not valid is renamed and kept; a file that cannot be read is not touched. Values of
// unknown types are written back unchanged. Any thread.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace zul {

class UserDefaults {
  public:
    /// An empty path keeps the settings in memory. For tests.
    explicit UserDefaults(std::filesystem::path file = {});
    ~UserDefaults();

    /// $XDG_CONFIG_HOME (or ~/.config) /zul-printer-utility/defaults.json
    static std::filesystem::path standardFile();

    /// Numbers and booleans are returned as text ("1", "true"). nullopt for an absent key, a list or a dictionary.
    std::optional<std::string> stringForKey(const std::string& key) const;
    /// False if absent.
    bool boolForKey(const std::string& key) const;
    /// False if the file could not be written; the value is still used in this run. lastError() has the reason.
    bool setString(const std::string& key, const std::string& value);
    bool setBool(const std::string& key, bool value);
    /// False if there was no such key.
    bool remove(const std::string& key);
    /// All values that can be read as text, by key.
    std::map<std::string, std::string> all() const;
    /// Why the file could not be read or written, with its name and what to do; empty without an error.
    std::string lastError() const;

  private:
    struct Values;
    void read();
    bool write();
    /// Does not write the file if it holds the value already: every start sets the same values.
    template <class Value> bool set(const std::string& key, const Value& value);

    mutable std::mutex _mutex;
    const std::filesystem::path _file;
    std::unique_ptr<Values> _values;
    bool _mayWrite = true;   // false: a file that could not be read must not be replaced
    std::string _readError;  // kept for lastError()
    std::string _writeError; // of the latest change
};

} // namespace zul
