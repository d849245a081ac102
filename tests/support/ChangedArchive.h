// A copy of the sample archive with some files changed, in a temporary folder that is removed with the object.
#pragma once

#include "support/TemporaryFolder.h"

#include <filesystem>
#include <string>

namespace zul {

class ChangedArchive {
  public:
    /// sample: the folder to copy; it is not changed.
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
