// Sets the destinations of the log facility and of the system log.
// Called by the main function of both programs, before any queue runs.
#include "session/Logs.h"

#include "holven_log/HOLVEN_Log.h"
#include "platform/files/ScopedFd.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/foundation/SystemLog.h"
#include "session/SessionOptions.h"
#include "session/SessionProblem.h"

#include <optional>
#include <string>
#include <unistd.h>

namespace zul {

namespace {

// The log facility redirects standard error into its file; this restores it, because users read problems there.
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
