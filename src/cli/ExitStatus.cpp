// Maps the result of an update to the exit status of the run.
// Called by the update command on the main queue; a pure function.
#include "cli/ExitStatus.h"

#include "update/UpdateVerdict.h"

namespace zul::cli {

ExitStatus exitStatusOf(UpdateResult result) {
    switch (result) {
    case UpdateResult::succeeded:
    case UpdateResult::upToDate:
        return kDone;
    case UpdateResult::newerInstalled:
        return kNotNeeded;
    case UpdateResult::busy:
        return kBusy;
    case UpdateResult::notReady:
        return kNotReady;
    case UpdateResult::badFiles:
        return kCorruption;
    case UpdateResult::unanswered:
    case UpdateResult::notBack:
        return kNotBack;
    case UpdateResult::stopped:
        return kInterrupted;
    default:
        return kFailed;
    }
}

} // namespace zul::cli
