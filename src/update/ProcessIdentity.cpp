// Which process it was, from the kernel's own files. Called by the history of updates, on its callers' threads.
#include "update/ProcessIdentity.h"

#include "platform/files/Files.h"

#include <sstream>
#include <unistd.h>

namespace zul {

namespace {

std::string bootId() {
    return firstLineOfFile("/proc/sys/kernel/random/boot_id");
}

// 0 if there is no such process, or if it has ended already.
std::uint64_t beginOfProcess(int pid) {
    const std::string text = textOfFile("/proc/" + std::to_string(pid) + "/stat");
    // The name, in parentheses, may hold anything, parentheses too.
    const auto end = text.rfind(')');
    if (end == std::string::npos) return 0;
    std::istringstream fields(text.substr(end + 1));
    std::string state, skipped;
    fields >> state;
    if (state == "Z" || state == "X") return 0;
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
