// Where the log facility and the system log write to. Main thread, before any queue runs.
#include "session/Logs.h"

#include "holven_log/HOLVEN_Log.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/foundation/SystemLog.h"

#include <unistd.h>

namespace zul {

namespace {

// The log facility takes standard error with it into its file; here that stays where the user reads what went wrong.
bool openLogFile(const std::string& file) {
    const int terminal = ::dup(STDERR_FILENO);
    const bool isOpen = HOLVEN_Log::setLogFile(file);
    if (terminal >= 0) {
        ::dup2(terminal, STDERR_FILENO);
        ::close(terminal);
    }
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
