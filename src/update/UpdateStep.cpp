// Which step of an update is marked as the current or the failed one. Pure function. Called by the window's update card
// on the main queue.
#include "update/UpdateStep.h"

#include "update/UpdatePhase.h"
#include "update/UpdateState.h"
#include "update/UpdateVerdict.h"

namespace zul {

UpdateStep stepOf(const UpdateState& state, const UpdateVerdict& verdict) {
    // These results are known only afterwards, in a later phase than the one that failed.
    switch (verdict.result) {
    case UpdateResult::badFiles:
    case UpdateResult::imageNotTaken:
        return verdict.isUntouched() ? UpdateStep::checking : UpdateStep::writingFirmware;
    case UpdateResult::commandRefused:
        return UpdateStep::enteringLoader;
    case UpdateResult::versionUnread:
    case UpdateResult::otherVersion:
        return isImageTaken(state) ? UpdateStep::restartingIntoFirmware : UpdateStep::writingFirmware;
    case UpdateResult::tablesMissing:
    case UpdateResult::tablesDiffer:
    case UpdateResult::clearRefused:
    case UpdateResult::identityLost:
        return UpdateStep::writingTables;
    default:
        break;
    }
    // A printer whose image was cut may come back with its old firmware.
    const bool isCutOff = state.phase == UpdatePhase::restarted && !isImageTaken(state);
    return isCutOff ? UpdateStep::writingFirmware : phaseRow(state.phase).step;
}

} // namespace zul
