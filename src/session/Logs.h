// Opens the logs of a run, before anything else starts.
#pragma once

#include "session/SessionOptions.h"
#include "session/SessionProblem.h"

#include <optional>
#include <string>

namespace zul {

/// Opens the program's logs as the options say. Returns the problem, or nullopt. Main thread.
std::optional<SessionProblem> openLogs(const SessionOptions& options, const std::string& programName);

} // namespace zul
