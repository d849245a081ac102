// What a script learns from zulctl's end.
#pragma once

#include "update/UpdateVerdict.h"

namespace zul::cli {

enum ExitStatus : int {
    kDone = 0,
    kFailed = 1,
    kWrongUsage = 2,
    kNotNeeded = 3,  // the installed version is newer than the available one
    kNoPrinter = 4,  // no such printer
    kBusy = 5,       // another program holds it
    kNotReady = 6,   // its status says why
    kCorruption = 7, // the firmware files are damaged, missing or incomplete
    kNotBack = 8,    // it did not come back, or stopped answering
    kInterrupted = 130,
};

/// The exit status of an update that has ended with this result.
ExitStatus exitStatusOf(UpdateResult result);

} // namespace zul::cli
