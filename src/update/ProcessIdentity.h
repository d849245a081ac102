// Which process it was, so that it can be asked later whether it still runs: process ids are used again. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace zul {

struct ProcessIdentity {
    int pid = 0;
    std::string boot;        // the kernel's name for this run of the machine
    std::uint64_t begun = 0; // the process's start, in the kernel's ticks since the machine's
    bool operator==(const ProcessIdentity&) const = default;
};

ProcessIdentity identityOfThisProcess();
/// Whether that very process still runs; one that has ended and is only waited for by its parent does not.
bool isRunning(const ProcessIdentity& process);

} // namespace zul
