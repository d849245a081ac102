// The private thread of the locks: it answers whoever asks about a lock of this process, and waits for the end of locks
// of other processes. Used by PrinterLocks only. Any thread.
#pragma once

#include "update/LockAnswer.h"
#include "update/LockSocket.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace zul {

class LockService {
  public:
    LockService();
    /// The thread ends soon after and is not waited for: it shares what it uses.
    ~LockService();
    LockService(const LockService&) = delete;
    LockService& operator=(const LockService&) = delete;

    /// Answers at the listener from now on. Returns an id for the two below; 0 when the system refuses a thread or
    /// descriptors (errno says why), and then the lock is released again.
    std::uint64_t addLock(ScopedFd listener, LockAnswer answer);
    void setPhase(std::uint64_t lock, const std::string& phase);
    /// since: when the activity began, in seconds since 1970; 0 if not known. It is in no phase yet.
    void setActivity(std::uint64_t lock, const std::string& activity, std::int64_t since);
    /// Releases the lock. Whoever watches it is notified by the kernel.
    void endLock(std::uint64_t lock);

    /// Calls released once, on the private thread, when no other process has the lock at this address. Returns an id
    /// for endWatch(); 0 when the system refuses a thread or descriptors.
    std::uint64_t addWatch(const LockAddress& address, std::function<void()> released);
    /// A call of released that is under way is not waited for.
    void endWatch(std::uint64_t watch);

  private:
    struct Core;
    std::shared_ptr<Core> _core;
};

} // namespace zul
