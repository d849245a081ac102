// The course of updates: when advice is due, when an update has ended, and with which result. Also the operator's stop
// and dismissal, and what may be started on a printer. Main queue. Called after each change that the monitor reports,
// by the timer twice a second, and by the window and the commands.
#include "Classes/PrinterTypes.h"
#include "archive/ArchiveTexts.h"
#include "archive/FirmwareArchive.h"
#include "platform/dispatch/Clock.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/LocalTime.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/usb/IOReturn.h"
#include "protocol/StatusTexts.h"
#include "update/Update.h"
#include "update/UpdatePhase.h"
#include "update/UpdateRecord.h"
#include "update/UpdateState.h"
#include "update/UpdateSupervisor.h"
#include "update/UpdateTexts.h"
#include "update/UpdateVerdict.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <fmt/format.h>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zul {

namespace {

using std::chrono::seconds;

constexpr auto kTick = std::chrono::milliseconds(500); // half of the displayed unit, so that no second is skipped
constexpr auto kPassingDelay = seconds(10);            // a head cools down, a cover is closed: no advice needed
constexpr auto kLongestStop = seconds(60);             // a program that is asked to end does so within this time
constexpr auto kLongestQuestions = seconds(60);        // after the report; a printer that replies needs much less

// Each text once: several files may have the same problem.
template <typename ToText>
std::string joinedTexts(const std::vector<ArchiveProblem>& problems, ToText toText, const char* separator) {
    std::vector<std::string> texts;
    for (const ArchiveProblem& problem : problems) {
        std::string text = toText(problem);
        if (std::ranges::count(texts, text) == 0) texts.push_back(std::move(text));
    }
    return fmt::format("{}", fmt::join(texts, separator));
}

std::string adviceForReturnElsewhere(const Update& update) {
    return localizedFormat("Plug it in at %s again, or start the update of the printer at %s.", update.location,
                           update.cameBackAt);
}

// A program may end now: no command has been sent, or the printer does not need it before the next update.
bool canBeLeft(const UpdateState& state) {
    if (!state.mustNotBeStopped()) return state.phase != UpdatePhase::checking || !state.mayBeOrdered();
    return state.image == ImageState::taken && state.phase != UpdatePhase::colorTables;
}

} // namespace

// ---- refreshing -----------------------------------------------------------------------------------------------------

// Copies the monitor's state to the update, and acts on it.
void UpdateSupervisor::refresh(const std::string& key) {
    const auto found = _updates.find(key);
    const auto state = _monitor.state(key);
    if (found == _updates.end() || !state) return;
    Update& update = found->second;
    update.state = *state;
    update.isAsking = _courses[key].pendingAlerts > 0;
    if (_courses[key].isRecorded) _services.recorder->noteState(update.state);
    showPhaseToOthers(update);
    if (update.isOpen()) {
        refreshOpen(update);
    } else {
        reviewEnded(update);
    }
    notifyChange(key);
}

void UpdateSupervisor::refreshOpen(Update& update) {
    const std::string key = update.state.key;
    const auto result = _courses[key].isBegun ? resultOf(update) : resultOfPatience(update);
    if (result) {
        end(key, *result);
        return;
    }
    showFlags(update);
    reportMissingIdentity(update);
    Course& course = _courses[key];
    const bool isNews = update.state.lastProgress > course.dismissedAt || update.state.isReported;
    if (!update.isDismissed || !isNews) return;
    update.isDismissed = false;
    takeLock(key);
}

// A loader that does not report its device ID takes its image nevertheless, and may not be able to take a second one.
void UpdateSupervisor::reportMissingIdentity(const Update& update) {
    const UpdatePhase phase = update.state.phase;
    const bool isLoader =
        phase == UpdatePhase::loaderBack || phase == UpdatePhase::writing || phase == UpdatePhase::programming;
    if (!update.state.isIdentityMissing || !isLoader) return;
    if (std::exchange(_courses[update.state.key].isIdentityReported, true)) return;
    note(localizedFormat("%s does not report its device ID in its loader; its update continues", update.name));
}

// Advice is due when a phase has taken its longest time, with or without signs of life. An update may be started again
// only if there are none.
void UpdateSupervisor::showFlags(Update& update) {
    const UpdateState& state = update.state;
    const auto patience = _settings.stallAfter ? _settings.stallAfter : longestDuration(state.phase, update.usual);
    const auto delay = now() - state.lastProgress;
    const bool isOverdue = patience && delay >= *patience;
    const bool isQuiet = patience && now() - state.lastSign >= *patience;
    const bool isForPeople = state.isHeldElsewhere() || (state.phase == UpdatePhase::checking && update.isAsking);
    // Also for a failed image: one that was sent whole may have been taken, and the printer gets the time to show it.
    update.isStalled = isQuiet && !isForPeople;
    const auto passing = std::min<Clock::Duration>(kPassingDelay, patience.value_or(kPassingDelay));
    update.isWaiting = !update.isAsking && ((state.isWaitingUntilReady() && delay >= passing) ||
                                            (state.isHeldElsewhere() && state.phase != UpdatePhase::checking));
    update.isLate = isOverdue && !update.isStalled && !update.isWaiting && !isForPeople;
    update.mayBeDismissed = update.isStalled || update.isLate || (update.isWaiting && isOverdue);
    update.advice.clear();
    if (update.isStalled || update.isWaiting) update.advice = adviceFor(state);
    if (update.isLate) update.advice = adviceForDelay(state);
    if (!update.cameBackAt.empty() && !state.isAttached) {
        update.advice =
            localizedFormat("The printer came back at %s instead of %s.", update.cameBackAt, update.location) + " " +
            adviceForReturnElsewhere(update);
    }
}

void UpdateSupervisor::notifyChange(const std::string& key) {
    if (_services.keepAwake) _services.keepAwake(isAnyUnderWay());
    if (_observer != nullptr) _observer->updateDidChange(key);
}

// ---- the result -----------------------------------------------------------------------------------------------------

// The result of an update that the engine works on; nullopt while an event that may still come can decide it.
std::optional<UpdateResult> UpdateSupervisor::resultOf(Update& update) {
    const UpdateState& state = update.state;
    if (state.isArchiveRefused) return UpdateResult::badFiles;
    if (!state.otherSerialNumber.empty()) {
        update.replacedBy = state.otherSerialNumber;
        return UpdateResult::notBack;
    }
    std::optional<UpdateResult> result;
    if (state.isReported) {
        result = resultAfterReport(update);
    } else if (state.phase == UpdatePhase::checking) {
        result = resultWhileChecking(update);
    } else {
        result = resultAfterImage(update);
    }
    if (result) return result;
    if (update.isStopRequested && (canBeLeft(state) || now() >= _courses[state.key].stopDeadline)) {
        // If all replies are there already, it need not wait for the end of the queries.
        const bool isDone = state.isReported && resultByReplies(update) == UpdateResult::succeeded &&
                            !lacksAnswersOnly(state, update.expectation) && !isUnrecognised(update);
        return isDone ? UpdateResult::succeeded : UpdateResult::stopped;
    }
    return resultOfPatience(update);
}

std::optional<UpdateResult> UpdateSupervisor::resultWhileChecking(const Update& update) const {
    const UpdateState& state = update.state;
    if (state.refused && !state.refused->isByDeparture()) return UpdateResult::commandRefused;
    if (state.isReconnecting) return UpdateResult::reconnected;
    if (!state.isAttached) return UpdateResult::left;
    if (state.isReadinessUnanswered) return UpdateResult::unanswered;
    if (state.isOrderFailed) return state.isHeldElsewhere() ? UpdateResult::busy : UpdateResult::notOpened;
    return std::nullopt;
}

std::optional<UpdateResult> UpdateSupervisor::resultAfterImage(const Update& update) const {
    const UpdateState& state = update.state;
    if (state.phase == UpdatePhase::backInLoader) return UpdateResult::imageNotTaken;
    if (state.phase == UpdatePhase::restarted && state.isIdentityMissing) return UpdateResult::identityLost;
    // The write of the image failed. The queries after it show whether the loader waits for another image. An image
    // that was sent whole may have been taken although the end of the write was not confirmed: then the printer leaves.
    const bool isLoaderWaiting = state.rawStatus == kLoaderStatus && state.isRefusalAnswered;
    const bool isRefused = state.phase == UpdatePhase::writing && state.refused && !state.refused->isByDeparture();
    if (isRefused && (isLoaderWaiting || (state.isRefusalAnswered && !state.isWholeImageSent))) {
        return UpdateResult::imageNotTaken;
    }
    return std::nullopt;
}

// After the engine's report the printer is queried once more. The update is judged when these queries have ended.
std::optional<UpdateResult> UpdateSupervisor::resultAfterReport(Update& update) {
    const UpdateState& state = update.state;
    Course& course = _courses[state.key];
    const bool areQuestionsOver = state.roundsSinceReport >= course.roundsNeeded || !state.isAttached ||
                                  now() - state.phaseBegun >= kLongestQuestions;
    if (!areQuestionsOver) return std::nullopt;
    const Printer printer = attached(state.key);
    const bool isAnswerMissing = lacksAnswersOnly(state, update.expectation) || isUnrecognised(update);
    if (isAnswerMissing && !course.isAskedOnceMore && printer && state.isAttached) {
        course.isAskedOnceMore = true;
        course.roundsNeeded = state.roundsSinceReport + 1;
        printer->updateInfo();
        return std::nullopt;
    }
    return resultByReplies(update);
}

UpdateResult UpdateSupervisor::resultByReplies(Update& update) {
    return isReplaced(update) ? UpdateResult::notBack : judgeByReplies(update.state, update.expectation);
}

// The result of an update that has made no progress for the time after which the operator wants it to end.
std::optional<UpdateResult> UpdateSupervisor::resultOfPatience(const Update& update) const {
    const UpdateState& state = update.state;
    if (!_settings.giveUpAfter || update.isAsking) return std::nullopt;
    if (now() - state.lastProgress < *_settings.giveUpAfter) return std::nullopt;
    if (state.isHeldElsewhere()) return UpdateResult::busy;
    if (state.isImageInDoubt()) return UpdateResult::imageNotTaken;
    if (state.phase != UpdatePhase::checking) return UpdateResult::notBack;
    return state.isWaitingUntilReady() ? UpdateResult::notReady : UpdateResult::unanswered;
}

// Judges the update, also once more to correct its verdict, and releases what it has used.
void UpdateSupervisor::end(const std::string& key, UpdateResult result) {
    Update& update = _updates[key];
    update.endedAt = now(); // first: later progress belongs to an ended update
    // The newest state: the block that copies the last change may still wait on the main queue.
    if (const auto state = _monitor.state(key)) update.state = *state;
    if (result == UpdateResult::busy && !update.state.holder) update.state.holder = _courses[key].holder;
    Course& course = _courses[key];
    update.isStalled = update.isLate = update.isWaiting = update.isDismissed = update.mayBeDismissed = false;
    endWait(update);
    judge(update, result);
    update.verdict.isCorrected = course.judged.has_value();
    course.judged = update.state;
    course.judgedAttachment = update.state.attachment;
    course.isSettled = !update.replacedBy.empty();
    completeRecord(update);
    releaseLock(key);
    keepInterface(key, false);
    // The engine leaves the interface open after a check that led to no update.
    if (update.verdict.isUntouched() && !course.wasClaimed) releaseInterfaces(key);
    if (_services.keepAwake) _services.keepAwake(isAnyUnderWay());
    showReports(key);
    if (_observer != nullptr) _observer->updateDidEnd(key);
}

// Closes the interfaces of a printer that is not being updated. The engine leaves them open after a round of queries
// that was cut short or an update that was declined, and then other processes could not use the printer. attachment:
// only the object of that service; 0: all objects of the printer.
void UpdateSupervisor::releaseInterfaces(const std::string& key, std::uint32_t attachment) {
    const auto found = _updates.find(key);
    if (found != _updates.end() && found->second.isOpen()) return;
    for (const Printer& printer : _services.printersWithKey(key)) {
        const bool isMeant = attachment == 0 || printer->creationToken() == attachment;
        if (isMeant && printer->ownership() == Ownership::thisProgram) printer->closeInterface(nullptr);
    }
}

// The first object of the attached printer with this key; null if it is not attached.
UpdateSupervisor::Printer UpdateSupervisor::attached(const std::string& key) const {
    const auto printers = _services.printersWithKey(key);
    return printers.empty() ? nullptr : printers.front();
}

// The engine may still wait until the printer is ready. An update that has been judged must not begin afterwards.
void UpdateSupervisor::endWait(const Update& update) {
    if (update.state.phase != UpdatePhase::checking || !_courses[update.state.key].isBegun) return;
    if (const Printer printer = update.printer.lock()) printer->supersedeWait();
}

void UpdateSupervisor::judge(Update& update, UpdateResult result) const {
    update.verdict = {.result = result,
                      .reason = reasonFor(result, update.state, update.expectation),
                      .refused = update.state.refused,
                      .holder = result == UpdateResult::busy ? update.state.holder : std::nullopt,
                      .isAfterOrder = update.state.mayBeOrdered()};
    update.advice = update.verdict.isSuccess() ? "" : adviceAfter(result, update.state);
    explain(update);
}

// Reasons and advice that need more than the state of the update.
void UpdateSupervisor::explain(Update& update) const {
    const Course& course = _courses.at(update.state.key);
    const UpdateResult result = update.verdict.result;
    if (result == UpdateResult::badFiles && !course.fileProblems.empty()) {
        update.verdict.reason = joinedTexts(course.fileProblems, messageOf, "; ");
        update.advice = joinedTexts(course.fileProblems, remedyOf, " ");
    }
    if (result == UpdateResult::notBack && !update.cameBackAt.empty() && !update.state.isAttached) {
        update.verdict.reason =
            localizedFormat("the printer came back at %s instead of %s", update.cameBackAt, update.location);
        update.advice = adviceForReturnElsewhere(update);
    }
    if (result == UpdateResult::notBack && !update.replacedBy.empty()) {
        update.verdict.reason =
            localizedFormat("another printer (serial number %s) is attached at its location", update.replacedBy);
        update.advice = Bundle::localized(operatorText("Attach the printer whose update was begun, and start its "
                                                       "update again."));
    }
    const Printer printer = update.printer.lock();
    if (result == UpdateResult::notOpened && printer && printer->openStatus() == kIOReturnNotPrivileged) {
        update.verdict.reason = Bundle::localized(operatorText("this user has no right to open the printer"));
        update.advice = localizedFormat("Run \"%s\": it names the missing right and what gives it. Then start the "
                                        "update again.",
                                        "zulctl doctor");
    }
    if (result != UpdateResult::unanswered || !printer) return;
    const UpdateRecord* const earlier = incompleteRecord(*printer);
    if (earlier == nullptr) return;
    // The phase in which the earlier update was interrupted or has failed.
    const std::string& last = earlier->phases.back().name;
    if (last != phaseRow(UpdatePhase::writing).name && last != phaseRow(UpdatePhase::cutOff).name) return;
    // A printer that waits for the rest of a payload takes every query for that rest.
    update.verdict.reason =
        localizedFormat("the transfer of the firmware was interrupted at %s, and the printer waits for the rest of it",
                        localTimeText(earlier->begun));
    update.advice = Bundle::localized(operatorText("Switch the printer off and on, then start the update again: that "
                                                   "completes it."));
}

// ---- patience -------------------------------------------------------------------------------------------------------

// Do not restart a running timer: events of one printer must not delay the check of the others.
void UpdateSupervisor::startTicking() {
    if (_timer != 0) return;
    _timer = _services.clock.callAt(now() + kTick, [weak = std::weak_ptr(_self), &mainQueue = _services.mainQueue] {
        mainQueue.async([weak] {
            if (const auto self = weak.lock()) (*self)->tick();
        });
    });
}

void UpdateSupervisor::tick() {
    _timer = 0;
    std::vector<std::string> open;
    for (const auto& [key, update] : _updates) {
        if (update.isOpen()) open.push_back(key); // a dismissed one, too: its limits apply as before
    }
    for (const std::string& key : open) refresh(key);
    // The timer ends with the last open update: an idle program is not woken.
    if (!open.empty()) startTicking();
}

// ---- actions --------------------------------------------------------------------------------------------------------

void UpdateSupervisor::requestStop() {
    std::vector<std::string> open;
    for (auto& [key, update] : _updates) {
        if (!update.isOpen()) continue;
        if (!std::exchange(update.isStopRequested, true)) _courses[key].stopDeadline = now() + kLongestStop;
        open.push_back(key);
    }
    for (const std::string& key : open) {
        // An update that has not begun yet has sent nothing and can end at once.
        if (_courses[key].isBegun) {
            refresh(key);
        } else {
            end(key, UpdateResult::stopped);
        }
    }
}

void UpdateSupervisor::dismiss(const std::string& key) {
    const auto found = _updates.find(key);
    if (found == _updates.end()) return;
    if (found->second.isOpen()) {
        if (!found->second.mayBeDismissed) return;
        found->second.isDismissed = true; // it is shown again when it makes progress
        releaseLock(key);                 // until then another process may update the printer
        _courses[key].dismissedAt = now();
    } else {
        _updates.erase(found);
        _monitor.endUpdate(key);
    }
    notifyChange(key);
}

// ---- questions ------------------------------------------------------------------------------------------------------

std::string UpdateSupervisor::reasonAgainst(const std::string& key) const {
    const auto found = _updates.find(key);
    if (found == _updates.end() || !found->second.isOpen()) return {};
    if (!found->second.isStalled) return Bundle::localized(operatorText("This printer is being updated."));
    // The engine still has the status text of the loader from before the restart, and would send another image.
    const bool isSilent = found->second.state.phase == UpdatePhase::restarted && !_monitor.hasReportedStatus(key);
    if (!isSilent) return {};
    return Bundle::localized(operatorText("This printer does not answer. Switch it off and on: its update continues."));
}

std::string UpdateSupervisor::reasonAgainstActions(const std::string& key) const {
    const auto found = _updates.find(key);
    const bool isInMiddle = found != _updates.end() && found->second.isOpen() &&
                            (found->second.state.mustNotBeStopped() || !canBeLeft(found->second.state));
    return isInMiddle ? Bundle::localized(operatorText("This printer is being updated.")) : reasonAgainst(key);
}

bool UpdateSupervisor::mayGetSecondImage(const std::string& key) const {
    const auto found = _updates.find(key);
    if (found == _updates.end() || !found->second.isOpen() || !reasonAgainst(key).empty()) return false;
    const UpdatePhase phase = found->second.state.phase;
    return phase == UpdatePhase::programming || phase == UpdatePhase::restarting || phase == UpdatePhase::restarted ||
           phase == UpdatePhase::colorTables;
}

bool UpdateSupervisor::isAnyUnderWay() const {
    return std::ranges::any_of(_updates, [](const auto& entry) {
        const Update& update = entry.second;
        return update.isOpen() && !update.isDismissed && update.state.phase != UpdatePhase::checking;
    });
}

bool UpdateSupervisor::isAnyBetweenCommands() const {
    return std::ranges::any_of(_updates, [](const auto& entry) {
        const Update& update = entry.second;
        return update.isOpen() && (update.state.mustNotBeStopped() || !canBeLeft(update.state));
    });
}

double UpdateSupervisor::progress() const {
    double sum = 0;
    int count = 0;
    for (const auto& [key, update] : _updates) {
        if (!update.isOpen() || update.isDismissed) continue;
        sum += update.state.share();
        ++count;
    }
    return count == 0 ? 1 : sum / count;
}

} // namespace zul
