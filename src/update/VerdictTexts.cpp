// The texts of an update that has ended: the reason and what to do. Declared in UpdateTexts.h. Called by the supervisor
// when it judges an update. Any thread.
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/PrinterReservations.h"
#include "protocol/StatusTexts.h"
#include "update/UpdatePhase.h"
#include "update/UpdateState.h"
#include "update/UpdateTexts.h"
#include "update/UpdateVerdict.h"

#include <optional>
#include <string>

namespace zul {

namespace {

std::string withCause(std::string text, const std::optional<IOReturn>& code) {
    return code ? localizedFormat("%s (%s)", text, describeFailure(*code)) : text;
}

std::string imageReason(const UpdateState& state) {
    if (state.phase == UpdatePhase::backInLoader || state.rawStatus == kLoaderStatus) {
        return Bundle::localized(operatorText("the printer is still in firmware update mode: it did not accept the "
                                              "firmware"));
    }
    // A printer in the middle of a payload takes queries for a part of it and does not reply.
    if (state.isAnswerMissing && state.isAttached) {
        return Bundle::localized(
            operatorText("the transfer of the firmware was interrupted, and the printer waits for the rest of it"));
    }
    return withCause(Bundle::localized(operatorText("the firmware was not written")), state.writeFailure);
}

std::string tablesReason(const UpdateState& state) {
    if (state.tablesWritten == 0) {
        return withCause(Bundle::localized(operatorText("no color table was sent")), state.writeFailure);
    }
    return withCause(localizedFormat("only %d of %d color tables were sent", state.tablesWritten, state.tables),
                     state.writeFailure);
}

std::optional<std::string> reportedTable(const UpdateState& state, const UpdateExpectation& expectation) {
    const auto found = state.tableReplies.find(differingTable(state, expectation));
    return found == state.tableReplies.end() ? std::nullopt : found->second;
}

std::string notBackReason(const UpdateState& state) {
    if (state.isNotInLoader()) {
        return localizedFormat("the printer that is attached at its location is not in its loader (%s)",
                               textForStatus(state.rawStatus));
    }
    if (state.isWaitingUntilReady()) {
        return localizedFormat("the printer reports: %s", textForStatus(state.rawStatus));
    }
    if (state.isAttached) return Bundle::localized(operatorText("the printer stopped answering"));
    return Bundle::localized(operatorText("the printer did not come back"));
}

// Results of updates in which something was sent.
std::string reasonAfterSending(UpdateResult result, const UpdateState& state, const UpdateExpectation& expectation) {
    switch (result) {
    case UpdateResult::commandRefused:
        return Bundle::localized(operatorText("the printer did not accept the command to restart"));
    case UpdateResult::imageNotTaken:
        return imageReason(state);
    case UpdateResult::identityLost:
        return Bundle::localized(operatorText("the printer has new firmware and does not report its device ID: its "
                                              "color tables were not written"));
    case UpdateResult::versionUnread:
        return Bundle::localized(operatorText("the version could not be read after the update"));
    case UpdateResult::otherVersion:
        return localizedFormat("the printer reports %s after the update instead of %s",
                               textOrNull(state.currentVersion), textOrNull(expectation.version));
    case UpdateResult::tablesMissing:
        return tablesReason(state);
    case UpdateResult::tablesDiffer:
        return localizedFormat("the printer reports another color table than the one that was sent (%s)",
                               textOrNull(reportedTable(state, expectation)));
    case UpdateResult::clearRefused:
        return Bundle::localized(operatorText("the printer did not accept the command to clear its color tables"));
    case UpdateResult::notBack:
        return notBackReason(state);
    case UpdateResult::stopped:
        return Bundle::localized(operatorText("the program was asked to end"));
    default:
        return "";
    }
}

std::string adviceAfterStop(const UpdateState& state) {
    if (!state.mayBeOrdered()) {
        return Bundle::localized(operatorText("Nothing has been changed in the printer."));
    }
    if (state.image == ImageState::taken) {
        return Bundle::localized(operatorText("The printer has the firmware and restarts by itself. Its color tables "
                                              "are not written yet. Leave it switched on and start the update again: "
                                              "that completes it."));
    }
    // A printer that waits for the rest of a payload takes every query for that rest.
    const bool isWriting = state.phase == UpdatePhase::writing && state.bytesDone > 0;
    const bool isCut = isWriting || state.phase == UpdatePhase::cutOff;
    if (isCut || state.isImageInDoubt()) {
        return Bundle::localized(operatorText("Switch the printer off and on, then start the update again: that "
                                              "completes it."));
    }
    return Bundle::localized(operatorText("The printer restarts into its loader or waits in it. Leave it switched on "
                                          "and start the update again: that completes it."));
}

} // namespace

std::string reasonFor(UpdateResult result, const UpdateState& state, const UpdateExpectation& expectation) {
    switch (result) {
    case UpdateResult::upToDate:
        return localizedFormat("%s and its color tables are installed already", textOrNull(state.currentVersion));
    case UpdateResult::newerInstalled:
        return localizedFormat("the installed firmware %s is newer than %s", textOrNull(state.previousVersion),
                               textOrNull(expectation.version));
    case UpdateResult::declined:
        return Bundle::localized(operatorText("it was declined"));
    case UpdateResult::busy:
        return describeHolder(state.holder.value_or(InterfaceHolder{}));
    case UpdateResult::notReady:
        return localizedFormat("the printer reports: %s", textForStatus(state.rawStatus));
    case UpdateResult::unanswered:
        return Bundle::localized(operatorText("the printer does not answer"));
    case UpdateResult::notOpened:
        return Bundle::localized(operatorText("the printer could not be opened"));
    case UpdateResult::badFiles:
        return Bundle::localized(operatorText("the firmware files are missing or damaged"));
    case UpdateResult::cannotFollow:
        return Bundle::localized(operatorText("this machine does not report when printers leave and return"));
    case UpdateResult::left:
        return Bundle::localized(operatorText("the printer was disconnected before its update began"));
    case UpdateResult::reconnected:
        return Bundle::localized(operatorText("the printer's version was not known, so it was reconnected"));
    default:
        return reasonAfterSending(result, state, expectation);
    }
}

std::string adviceAfter(UpdateResult result, const UpdateState& state) {
    switch (result) {
    case UpdateResult::busy:
        return adviceForHolder(state.holder.value_or(InterfaceHolder{})) + " " +
               Bundle::localized(operatorText("Then start the update again."));
    case UpdateResult::notReady:
        return Bundle::localized(operatorText("Correct that, then start the update again."));
    case UpdateResult::unanswered:
        return Bundle::localized(
            operatorText("Nothing has been changed in the printer. Switch it off and on, then start "
                         "the update again."));
    case UpdateResult::notOpened:
        return Bundle::localized(operatorText("Plug the printer in again, then start the update again."));
    case UpdateResult::badFiles:
        return adviceFor(state);
    case UpdateResult::stopped:
        return adviceAfterStop(state);
    case UpdateResult::cannotFollow:
        return Bundle::localized(operatorText("Start the device service (udev) of this machine, then start the update "
                                              "again."));
    case UpdateResult::commandRefused:
        return adviceFor(state);
    case UpdateResult::left:
    case UpdateResult::reconnected:
        return Bundle::localized(operatorText("Start the update again."));
    case UpdateResult::imageNotTaken:
        // A printer that waits for the rest of a payload takes every query for that rest.
        if (state.isAnswerMissing && state.isAttached && state.phase != UpdatePhase::backInLoader) {
            return Bundle::localized(operatorText("Switch the printer off and on, then start the update again: that "
                                                  "completes it."));
        }
        return Bundle::localized(operatorText("Leave the printer switched on and start the update again: that "
                                              "completes it."));
    case UpdateResult::identityLost:
        return Bundle::localized(operatorText("Switch the printer off and on, then start the update again."));
    case UpdateResult::notBack:
        if (state.isNotInLoader()) {
            return Bundle::localized(
                operatorText("Check that this is the printer whose update was begun, then start the "
                             "update again."));
        }
        if (state.isWaitingUntilReady()) {
            return Bundle::localized(operatorText("Leave the printer switched on, correct that and start the update "
                                                  "again."));
        }
        return Bundle::localized(
            operatorText("Leave the printer switched on and check the USB cable. If it does not come back or does not "
                         "answer, switch it off and on. Then start the update "
                         "again."));
    case UpdateResult::versionUnread:
    case UpdateResult::otherVersion:
    case UpdateResult::tablesMissing:
    case UpdateResult::tablesDiffer:
    case UpdateResult::clearRefused:
        return Bundle::localized(operatorText("Leave the printer switched on and start the update again."));
    default:
        return "";
    }
}

} // namespace zul
