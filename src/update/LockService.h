// The private thread of the locks. It replies to processes that ask about a lock of this process, and waits until other
// processes release their locks. Used by PrinterLocks only. Any thread.
#pragma once

#include "platform/files/ScopedFd.h"
#include "update/LockAnswer.h"
#include "update/LockSocket.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace zul {

class LockService {
  public:
    /// Starts no thread; the first addLock() or addWatch() does.
    LockService();
    /// Asks the thread to end and does not wait for it: the thread shares ownership of all that it uses.
    ~LockService();
    LockService(const LockService&) = delete;
    LockService& operator=(const LockService&) = delete;

    /// Replies with answer to every connection at the listener from now on. Returns an id for the three functions
    /// below. Returns 0 if the system refuses a thread or descriptors (errno has the reason); then the lock is
    /// released.
    std::uint64_t addLock(ScopedFd listener, LockAnswer answer);
    /// Sets the phase in the replies, by its name in the phase table. An unknown id is ignored.
    void setPhase(std::uint64_t lock, const std::string& phase);
    /// Sets the activity in the replies and clears the phase. since: when the activity began, in seconds since 1970; 0
    /// if not known. An unknown id is ignored.
    void setActivity(std::uint64_t lock, const std::string& activity, std::int64_t since);
    /// Releases the lock. The kernel notifies the processes that watch it.
    void endLock(std::uint64_t lock);

    /// Calls released once, on the private thread, when no other process has the lock at this address. Returns an id
    /// for endWatch(). Returns 0 if the system refuses a thread or descriptors; then released is never called.
    std::uint64_t addWatch(const LockAddress& address, std::function<void()> released);
    /// Ends the watch. Does not wait for a call of released that is running already. An unknown id is ignored.
    void endWatch(std::uint64_t watch);

  private:
    struct Core;
    std::shared_ptr<Core> _core;
};

} // namespace zul
