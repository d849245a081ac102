// The login service of the system (org.freedesktop.login1), as far as updates need it: its inhibitor locks for sleep,
// shutdown and the lid switch. Each call opens its own connection to the system's message bus and waits for the reply,
// so call it on a thread that may block, never on the main queue. No function throws.
#pragma once

#include "platform/files/ScopedFd.h"

#include <chrono>
#include <string>

namespace zul {

struct LoginServiceOptions {
    /// Address of the message bus; empty: the system bus.
    std::string busAddress{};
    /// Time limit of a whole call. A bus may exist and never reply.
    std::chrono::milliseconds longestWait{5000};
};

/// A lock, or the reason why there is none.
struct LoginLock {
    ScopedFd lock{};       // held while this descriptor is open; also released when the process ends
    std::string problem{}; // for people, without a full stop; empty if the lock was taken
};

/// Requests the lock for sleep, shutdown and lid switch; if the user may not inhibit the lid switch, the one for sleep
/// and shutdown. why: shown to a user who tries to suspend the machine.
LoginLock takeLoginLock(const LoginServiceOptions& options, const std::string& why);

/// Empty if the login service replies; otherwise what is missing, without a full stop.
std::string loginServiceProblem(const LoginServiceOptions& options);

} // namespace zul
