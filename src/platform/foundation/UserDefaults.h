// The user's settings: one JSON file, read once, written whenever a value changes (to a new file that replaces the old
// one, so a crash loses no setting). A file that cannot be understood is kept under another name, one that cannot be
// read is left alone; values of kinds that this program does not use are written back as they were. Any thread.
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
    /// An empty path keeps everything in memory (tests).
    explicit UserDefaults(std::filesystem::path file = {});
    ~UserDefaults();

    /// $XDG_CONFIG_HOME (or ~/.config) /zul-printer-utility/defaults.json
    static std::filesystem::path standardFile();

    /// Numbers and booleans read as text too ("1", "true"). nullopt for an absent key, a list or a dictionary.
    std::optional<std::string> stringForKey(const std::string& key) const;
    /// NO when absent.
    bool boolForKey(const std::string& key) const;
    /// False when the file could not be written; the value is used for this run all the same. lastError() says why.
    bool setString(const std::string& key, const std::string& value);
    bool setBool(const std::string& key, bool value);
    /// False when there was no such key.
    bool remove(const std::string& key);
    /// All values that read as text, by key.
    std::map<std::string, std::string> all() const;
    /// Why the file could not be read or written, with its name and what to do; empty when all is well.
    std::string lastError() const;

  private:
    struct Values;
    void read();
    bool write();
    /// The file is left alone when it holds the value already: every start sets the same ones.
    template <class Value> bool set(const std::string& key, const Value& value);

    mutable std::mutex _mutex;
    const std::filesystem::path _file;
    std::unique_ptr<Values> _values;
    bool _mayWrite = true;   // not over a file that could not be read
    std::string _readError;  // kept: what became of the settings
    std::string _writeError; // of the latest change
};

} // namespace zul
