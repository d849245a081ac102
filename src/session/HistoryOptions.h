// Selects the history of updates that a run uses. Any thread.
#pragma once

#include "session/SessionOptions.h"
#include "update/UpdateHistory.h"

namespace zul {

/// The history in the user's state folder. Runs with embedded printers use the folder "embedded" below it, so that
/// trials appear neither among the updates of real printers nor as interrupted updates.
UpdateHistoryOptions historyOptions(const SessionOptions& options);

} // namespace zul
