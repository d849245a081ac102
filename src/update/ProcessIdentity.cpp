// The identity of a process, read from the kernel's files below /proc. Called by the history of updates on its callers'
// threads, and by the command line when it lists records.
#include "update/ProcessIdentity.h"

#include "platform/files/Files.h"

#include <cstdint>
#include <sstream>
#include <string>
#include <unistd.h>

namespace zul {

namespace {

std::string bootId() {
    return firstLineOfFile("/proc/sys/kernel/random/boot_id");
}

// The start time in clock ticks since the boot; 0 if there is no such process, or if it has ended already.
std::uint64_t beginOfProcess(int pid) {
    const std::string text = textOfFile("/proc/" + std::to_string(pid) + "/stat");
    // The name, in parentheses, may contain any character, also parentheses.
    const auto end = text.rfind(')');
    if (end == std::string::npos) return 0;
    std::istringstream fields(text.substr(end + 1));
    std::string state, skipped;
    fields >> state;
    if (state == "Z" || state == "X") return 0;
    // The start time is field 22; the state, which was read above, is field 3.
    for (int field = 4; field < 22; ++field) fields >> skipped;
    std::uint64_t begun = 0;
    fields >> begun;
    return begun;
}

} // namespace

ProcessIdentity identityOfThisProcess() {
    return {::getpid(), bootId(), beginOfProcess(::getpid())};
}

bool isRunning(const ProcessIdentity& process) {
    return process.begun != 0 && process.boot == bootId() && beginOfProcess(process.pid) == process.begun;
}

} // namespace zul
