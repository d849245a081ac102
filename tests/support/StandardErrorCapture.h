// Captures standard error while the object exists. One object at a time.
#pragma once

#include <cstdio>
#include <string>
#include <unistd.h>

namespace zul {

class StandardErrorCapture {
  public:
    StandardErrorCapture() {
        std::fflush(stderr);
        ::dup2(::fileno(_file), STDERR_FILENO);
    }
    ~StandardErrorCapture() {
        ::dup2(_before, STDERR_FILENO);
        ::close(_before);
        std::fclose(_file);
    }
    StandardErrorCapture(const StandardErrorCapture&) = delete;
    StandardErrorCapture& operator=(const StandardErrorCapture&) = delete;

    std::string text() const {
        std::fflush(stderr);
        std::string all(4096, 0);
        const ssize_t count = ::pread(::fileno(_file), all.data(), all.size(), 0);
        all.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        return all;
    }

  private:
    const int _before = ::dup(STDERR_FILENO);
    std::FILE* const _file = std::tmpfile();
};

} // namespace zul
