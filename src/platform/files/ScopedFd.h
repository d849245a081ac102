// A file descriptor that is closed by its owner.
#pragma once

#include <unistd.h>
#include <utility>

namespace zul {

/// Closes its descriptor in the destructor. A negative number means no descriptor. One thread at a time.
class ScopedFd {
  public:
    ScopedFd() = default;
    /// Owns the descriptor from now on; a negative one, as a failed open() returns it, is allowed.
    explicit ScopedFd(int fd) : _fd(fd) {}
    ScopedFd(ScopedFd&& other) noexcept : _fd(std::exchange(other._fd, -1)) {}
    /// Exchanges the descriptors: the earlier one is closed when other is destroyed.
    ScopedFd& operator=(ScopedFd&& other) noexcept {
        std::swap(_fd, other._fd);
        return *this;
    }
    ~ScopedFd() { reset(); }

    /// The descriptor, which stays owned; -1 if there is none.
    int get() const { return _fd; }
    explicit operator bool() const { return _fd >= 0; }
    /// Closes the descriptor now.
    void reset() {
        if (_fd >= 0) ::close(std::exchange(_fd, -1));
    }
    /// Passes the open descriptor to the caller.
    [[nodiscard]] int release() { return std::exchange(_fd, -1); }

  private:
    int _fd = -1;
};

} // namespace zul
