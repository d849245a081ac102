// The identity of a process. It is stored so that a later run can check whether that process still runs: a process id
// alone may belong to another process by then. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace zul {

/// A process id with the two values that make it unique.
struct ProcessIdentity {
    int pid = 0;
    std::string boot;        // the kernel's id of this boot of the machine
    std::uint64_t begun = 0; // when the process started, in the kernel's clock ticks since the boot; 0 if not known
    bool operator==(const ProcessIdentity&) const = default;
};

/// The identity of the calling process.
ProcessIdentity identityOfThisProcess();
/// Whether that very process still runs. A zombie, which has ended and waits for its parent, does not.
bool isRunning(const ProcessIdentity& process);

} // namespace zul
