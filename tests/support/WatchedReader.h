// A reader of archive files that counts how often each is opened and can act between two looks. Files are taken to be
// written long ago, so that what is asserted does not depend on when the test's files were made.
#pragma once

#include "platform/files/FileReader.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace zul {

class WatchedReader : public FileReader {
  public:
    /// Before the file's identity is looked at. Set before the reader is used; called on whatever thread looks.
    std::function<void(const std::string& fileName)> beforeLook;
    /// Before the file is opened.
    std::function<void(const std::string& fileName)> beforeRead;
    /// In place of what reading would find; contents: as it is. Set before the reader is used.
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
