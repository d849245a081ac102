// The login service of the system (org.freedesktop.login1), as far as updates need it: its locks against sleep,
// shutdown and the lid. Each call opens a connection of its own to the system's message bus and waits for the answer,
// so it belongs on a thread that may wait, never on the main queue. Nothing throws.
#pragma once

#include "platform/files/ScopedFd.h"

#include <chrono>
#include <string>

namespace zul {

struct LoginServiceOptions {
    /// Address of the message bus; empty: the system's.
    std::string busAddress{};
    /// How long a call waits in all. A bus may be there and never answer.
    std::chrono::milliseconds longestWait{5000};
};

/// A lock, or why there is none.
struct LoginLock {
    ScopedFd lock{};       // held as long as this is open; the end of the process gives it back, too
    std::string problem{}; // for people, without an end stop; empty with a lock
};

/// Asks for the lock against sleep, shutdown and closing the lid; where the user may not keep the lid from acting, for
/// the one against sleep and shutdown. why: shown to whoever wants the machine to sleep.
LoginLock takeLoginLock(const LoginServiceOptions& options, const std::string& why);

/// Empty if the login service answers; otherwise what is missing, without an end stop.
std::string loginServiceProblem(const LoginServiceOptions& options);

} // namespace zul
