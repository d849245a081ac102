// What can be derived from the state of an update. Pure functions, any thread; called by the supervisor, the texts and
// the displays.
#include "update/UpdateState.h"

#include "protocol/StatusTexts.h"
#include "update/UpdatePhase.h"

namespace zul {

bool UpdateState::mayBeOrdered() const {
    if (phase != UpdatePhase::checking) return true;
    return isLoaderOrdered && (!refused || refused->isByDeparture());
}

bool UpdateState::isWaitingUntilReady() const {
    const bool isAsked =
        phase == UpdatePhase::checking || phase == UpdatePhase::restarted || phase == UpdatePhase::colorTables;
    // Compares texts, not codes, as the engine does: several codes have the text "Idle".
    return isAsked && !refused && !isAnswerMissing && !rawStatus.empty() && rawStatus != kLoaderStatus &&
           textForStatus(rawStatus) != textForStatus(kReadyStatus);
}

bool UpdateState::isNotInLoader() const {
    return phase == UpdatePhase::loaderBack && isAttached && !isAnswerMissing && !rawStatus.empty() &&
           rawStatus != kLoaderStatus;
}

double UpdateState::share() const {
    // Only the phases that write have a measure of their own; in the others the bar does not move.
    const double bytes = bytesTotal > 0 ? static_cast<double>(bytesDone) / bytesTotal : 0;
    double ofPhase = 0;
    if (phase == UpdatePhase::writing) ofPhase = bytes;
    if (phase == UpdatePhase::colorTables && tables > 0) {
        ofPhase = (static_cast<double>(table - 1) + bytes) / static_cast<double>(tables);
    }
    return shareBefore(phase) + shareOf(phase) * ofPhase;
}

} // namespace zul
