// Creates a changed copy of the sample archive with a matching digest file. Called by tests that need an archive
// different from that of the build.
#include "support/ChangedArchive.h"

#include <fstream>

namespace zul {

namespace fs = std::filesystem;

ChangedArchive::ChangedArchive(fs::path sample) : _sample(std::move(sample)) {
    for (const auto& entry : fs::directory_iterator(_sample)) {
        fs::create_symlink(entry.path(), _folder / entry.path().filename().string());
    }
}

void ChangedArchive::remove(const std::string& file) const {
    fs::remove(_folder / file);
}

void ChangedArchive::damage(const std::string& file) const {
    remove(file);
    fs::copy_file(_sample / file, _folder / file);
    std::fstream stream(_folder / file, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(1000);
    stream.put('!');
}

void ChangedArchive::empty(const std::string& file) const {
    remove(file);
    _folder.write(file, "");
}

} // namespace zul
