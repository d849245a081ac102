// The exit statuses of zulctl, which scripts rely on.
#pragma once

#include "update/UpdateVerdict.h"

namespace zul::cli {

enum ExitStatus : int {
    kDone = 0,
    kFailed = 1,
    kWrongUsage = 2,
    kNotNeeded = 3,  // the installed version is newer than the available one
    kNoPrinter = 4,  // no such printer
    kBusy = 5,       // another process uses the printer
    kNotReady = 6,   // the printer's status names the reason
    kCorruption = 7, // the firmware files are damaged, missing or incomplete
    kNotBack = 8,    // the printer did not come back after a restart, or stopped answering
    kInterrupted = 130,
};

/// Exit status for an update that has ended with this result.
ExitStatus exitStatusOf(UpdateResult result);

} // namespace zul::cli
