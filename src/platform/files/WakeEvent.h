// A flag with a file descriptor: one thread uses it to wake another that waits in poll() or in an event loop.
#pragma once

#include "platform/files/ScopedFd.h"

#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>

namespace zul {

/// Any thread. If the system had no descriptor left, raise() wakes no thread.
class WakeEvent {
  public:
    /// Lowered at first.
    WakeEvent() : _event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

    /// Readable between raise() and lower(); -1 if there is none.
    int descriptor() const { return _event.get(); }
    /// Sets the flag and wakes the waiting thread.
    void raise() const {
        const std::uint64_t one = 1;
        while (::write(_event.get(), &one, sizeof one) < 0 && errno == EINTR) {
        }
    }
    /// Clears the flag. Returns true if it was raised since the last call.
    bool lower() const {
        std::uint64_t count = 0;
        ssize_t length = 0;
        do {
            length = ::read(_event.get(), &count, sizeof count);
        } while (length < 0 && errno == EINTR);
        return length == sizeof count;
    }

  private:
    const ScopedFd _event;
};

} // namespace zul
