// Which history of updates a run uses. Any thread.
#pragma once

#include "session/SessionOptions.h"
#include "update/UpdateHistory.h"

namespace zul {

/// The history in the user's state folder. Runs on embedded printers have one of their own, in the folder "embedded"
/// below it: what was tried out must not show among the updates of real printers, nor as one that was interrupted.
UpdateHistoryOptions historyOptions(const SessionOptions& options);

} // namespace zul
