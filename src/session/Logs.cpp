// Where the log facility and the system log write to. Main thread, before any queue runs.
#include "session/Logs.h"

#include "holven_log/HOLVEN_Log.h"
#include "platform/files/ScopedFd.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/foundation/SystemLog.h"

#include <unistd.h>

namespace zul {

namespace {

// The log facility takes standard error with it into its file; here that stays where the user reads what went wrong.
bool openLogFile(const std::string& file) {
    const ScopedFd terminal(::dup(STDERR_FILENO));
    const bool isOpen = HOLVEN_Log::setLogFile(file);
    if (terminal) ::dup2(terminal.get(), STDERR_FILENO);
    return isOpen;
}

} // namespace

std::optional<SessionProblem> openLogs(const SessionOptions& options, const std::string& programName) {
    setSystemLogVerbose(options.verbose);
    HOLVEN_Log::setApplicationName(programName);
    HOLVEN_Log::setShouldLogToStdErr(options.verbose);
    if (options.logFile.empty() || openLogFile(options.logFile)) return std::nullopt;
    return SessionProblem{
        localizedFormat("cannot write the log %s. Name a file that can be written.", options.logFile)};
}

} // namespace zul
