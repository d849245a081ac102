// The sample archive with some files changed: a folder of its own that goes with the object.
#pragma once

#include "support/TemporaryFolder.h"

#include <filesystem>
#include <string>

namespace zul {

class ChangedArchive {
  public:
    /// sample: the folder that is changed; it is not changed.
    explicit ChangedArchive(std::filesystem::path sample);
    const std::filesystem::path& folder() const { return _folder.path; }
    void remove(const std::string& file) const;
    void damage(const std::string& file) const;
    void empty(const std::string& file) const;

  private:
    const std::filesystem::path _sample;
    const TemporaryFolder _folder;
};

} // namespace zul
