// A file reader that counts how often each file is opened and calls the test between the check of a file and its
// opening. It treats files as written long ago, so that results do not depend on when the test's files were created.
#pragma once

#include "platform/files/FileReader.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace zul {

class WatchedReader : public FileReader {
  public:
    /// Called before the file's identity is determined, on the thread that does it. Set before the reader is used.
    std::function<void(const std::string& fileName)> beforeLook;
    /// Called before the file is opened.
    std::function<void(const std::string& fileName)> beforeRead;
    /// Results that replace those of reading; contents: read the file. Set before the reader is used.
    std::map<std::string, FileResult> results;

    std::optional<FileIdentity> identityOf(const std::filesystem::path& path) const override {
        if (beforeLook) beforeLook(path.filename().string());
        return FileReader::identityOf(path);
    }
    FileReading read(const std::filesystem::path& path) const override {
        const std::string name = path.filename().string();
        {
            const std::scoped_lock lock(_mutex);
            ++_opened[name];
        }
        if (beforeRead) beforeRead(name);
        const auto given = results.find(name);
        return given == results.end() ? FileReader::read(path) : FileReading{given->second};
    }

    /// How often each file was opened so far, by name.
    std::map<std::string, int> opened() const {
        const std::scoped_lock lock(_mutex);
        return _opened;
    }
    int timesOpened(const std::string& fileName) const {
        const auto all = opened();
        const auto found = all.find(fileName);
        return found == all.end() ? 0 : found->second;
    }

  protected:
    std::int64_t now() const override {
        constexpr std::int64_t kHour = 3'600'000'000'000;
        return FileReader::now() + kHour;
    }

  private:
    mutable std::mutex _mutex;
    mutable std::map<std::string, int> _opened;
};

} // namespace zul
