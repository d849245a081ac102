// A file descriptor with an owner.
#pragma once

#include <unistd.h>
#include <utility>

namespace zul {

/// Closes its descriptor when it is destroyed. Any negative number is none. One thread at a time.
class ScopedFd {
  public:
    ScopedFd() = default;
    explicit ScopedFd(int fd) : _fd(fd) {}
    ScopedFd(ScopedFd&& other) noexcept : _fd(std::exchange(other._fd, -1)) {}
    ScopedFd& operator=(ScopedFd&& other) noexcept {
        std::swap(_fd, other._fd);
        return *this;
    }
    ~ScopedFd() { reset(); }

    int get() const { return _fd; }
    explicit operator bool() const { return _fd >= 0; }
    /// Closes it now.
    void reset() {
        if (_fd >= 0) ::close(std::exchange(_fd, -1));
    }
    /// Leaves it open and to the caller.
    [[nodiscard]] int release() { return std::exchange(_fd, -1); }

  private:
    int _fd = -1;
};

} // namespace zul
