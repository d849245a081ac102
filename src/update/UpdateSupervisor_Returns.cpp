// Printers that come back late or at another place, other printers at the place of an updated one, and verdicts that
// are corrected by later replies. Main queue. Called by the supervisor's other sources when a printer has arrived, left
// or completed a round of queries, and after each change of an ended update.
#include "Classes/PrinterEvents.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "platform/usb/PrinterReservations.h"
#include "protocol/StatusTexts.h"
#include "update/UpdatePhase.h"
#include "update/UpdateState.h"
#include "update/UpdateSupervisor.h"
#include "update/UpdateTexts.h"
#include "update/UpdateVerdict.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zul {

namespace {

bool isSending(UpdatePhase phase) {
    return phase == UpdatePhase::writing || phase == UpdatePhase::colorTables;
}

// This process has sent an image or tables to the printer since the verdict was given. The phase in which it did so may
// be over when this runs on the main queue.
bool hasSentSince(const UpdateState& state, const UpdateState& judged) {
    const auto& past = state.pastPhases;
    const std::size_t known = judged.pastPhases.size() + 1; // and the phase in which it was judged
    return isSending(state.phase) ||
           std::any_of(past.begin() + static_cast<std::ptrdiff_t>(std::min(known, past.size())), past.end(),
                       [](const PhaseTime& phase) { return isSending(phase.phase); });
}

} // namespace

// ---- recognising printers -------------------------------------------------------------------------------------------

// Device info is stored by key: before this printer has replied itself, it may be that of an earlier printer at its
// place.
std::vector<std::string> UpdateSupervisor::serialNumbersOf(const TBUSBPrinterZUL& printer) const {
    std::vector<std::string> numbers;
    if (const auto number = printer.serialNumberUSB(); number && !number->empty()) numbers.push_back(*number);
    const std::string own = serialNumberOf(printer);
    if (!own.empty() && _monitor.wasAskedForAll(printer.keyUSBdevice())) numbers.push_back(own);
    return numbers;
}

// Compares serial numbers. If those of one side are not known, the printer at the place is taken for the right one.
bool UpdateSupervisor::isItsPrinter(const Course& course, const TBUSBPrinterZUL& printer) const {
    return serialNumbersOf(printer).empty() || course.serialNumbers.empty() || hasItsNumber(course, printer);
}

bool UpdateSupervisor::hasItsNumber(const Course& course, const TBUSBPrinterZUL& printer) const {
    const auto numbers = serialNumbersOf(printer);
    return std::ranges::find_first_of(numbers, course.serialNumbers) != numbers.end();
}

// The missing printer of this update if it is attached at another place; null if it is not. A printer without a known
// serial number is accepted only if it is in its loader, and if no other printer or update can be meant.
UpdateSupervisor::Printer UpdateSupervisor::returnedPrinter(const std::string& key) const {
    const Course& course = _courses.at(key);
    std::vector<Printer> possible;
    for (const std::string& place : _monitor.attachedKeys()) {
        const Printer other = place == key ? nullptr : attached(place);
        if (!other || other->vendorNumber() != course.vendorID || other->productNumber() != course.productID) continue;
        if (!isItsPrinter(course, *other)) continue;
        if (!serialNumbersOf(*other).empty() && !course.serialNumbers.empty()) return other;
        const auto update = _updates.find(place);
        const bool isBusy = update != _updates.end() && update->second.isOpen();
        if (!isBusy && other->printerStatus() == textForStatus(kLoaderStatus)) possible.push_back(other);
    }
    return possible.size() == 1 && isOnlyOneAway(key) ? possible.front() : nullptr;
}

// No other update waits for a printer of the same model.
bool UpdateSupervisor::isOnlyOneAway(const std::string& key) const {
    return std::ranges::none_of(_updates, [&](const auto& entry) {
        const bool isAway = entry.second.isOpen() && !entry.second.state.isAttached;
        return entry.first != key && isAway && _courses.at(entry.first).productID == _courses.at(key).productID;
    });
}

// A missing printer may come back at another port. For the engine it is another printer, so no update continues there;
// but the operator should read where it is.
void UpdateSupervisor::lookForReturns() {
    std::vector<std::string> changed;
    for (auto& [key, update] : _updates) {
        if (!update.isOpen()) continue;
        const Printer returned = update.state.isAttached ? nullptr : returnedPrinter(key);
        const std::string place = returned ? returned->locationText() : "";
        if (std::exchange(update.cameBackAt, place) != place) changed.push_back(key);
    }
    // After the loop: an observer that is notified may dismiss an update, which changes the map.
    for (const std::string& key : changed) refresh(key);
}

// The attached printer has not reported its serial number yet: it may be another one.
bool UpdateSupervisor::isUnrecognised(const Update& update) const {
    const Course& course = _courses.at(update.state.key);
    if (course.ownSerialNumber.empty() || _monitor.wasAskedForAll(update.state.key)) return false;
    const Printer printer = attached(update.state.key);
    return !printer || !hasItsNumber(course, *printer);
}

// Another printer is attached at the place of the updated one. The engine identifies printers by place, but replies of
// the other printer must not decide this update.
bool UpdateSupervisor::isReplaced(Update& update) {
    const Course& course = _courses[update.state.key];
    const Printer printer = attached(update.state.key);
    if (!printer || course.ownSerialNumber.empty() || !_monitor.wasAskedForAll(update.state.key)) return false;
    const std::string number = serialNumberOf(*printer);
    update.replacedBy = number == course.ownSerialNumber ? "" : number;
    return !update.replacedBy.empty();
}

// ---- corrections ----------------------------------------------------------------------------------------------------

// Decides after a round of queries whether an attached printer is the one whose update has ended: only its replies may
// correct the verdict.
void UpdateSupervisor::recogniseReturn(const PrinterEvent& event) {
    const auto found = _updates.find(event.key);
    if (found == _updates.end() || found->second.isOpen() || _courses[event.key].isSettled) return;
    Course& course = _courses[event.key];
    const Printer printer = attached(event.key);
    if (!printer || printer->creationToken() != event.attachment) return;
    if (course.judgedAttachment != event.attachment) course.isSurelyItsPrinter = hasItsNumber(course, *printer);
    // Add its numbers: a loader may have had another one.
    if (course.judgedAttachment == event.attachment || isItsPrinter(course, *printer)) {
        course.judgedAttachment = event.attachment;
        for (std::string& number : serialNumbersOf(*printer)) {
            if (std::ranges::count(course.serialNumbers, number) == 0) course.serialNumbers.push_back(number);
        }
    } else {
        course.isSettled = true;
    }
    refresh(event.key);
}

// After the verdict a late reply may correct it, and an update that continues is opened again.
void UpdateSupervisor::reviewEnded(Update& update) {
    const UpdateState& state = update.state;
    const bool hasMoved = state.lastProgress > update.endedAt;
    // What this process sends belongs to its own update, even if another process has used the printer meanwhile.
    const std::optional<UpdateState>& judged = _courses[state.key].judged;
    const bool isOurs = hasMoved && judged && hasSentSince(state, *judged);
    if (isOurs || (hasMoved && state.mustNotBeStopped() && !isUpdatedElsewhere(state.key))) {
        reopen(update);
    } else {
        correct(update);
    }
}

// A success may become a failure and the other way round, but only by a new reply of the same printer.
void UpdateSupervisor::correct(Update& update) {
    const UpdateState& state = update.state;
    const Course& course = _courses[state.key];
    if (!course.judged || !state.isReported || state.attachment != course.judgedAttachment) return;
    if (!hasOtherReplies(state, *course.judged)) return;
    // Take a success back only at the end of a round and for the same printer: a reply that belongs to another query is
    // asked for again before the round ends, and another printer may be attached at the place.
    const bool isRoundOver = state.roundsSinceReport > course.judged->roundsSinceReport;
    if (update.verdict.isSuccess() && (!isRoundOver || !course.isSurelyItsPrinter)) return;
    const UpdateResult result = judgeByReplies(state, update.expectation);
    const bool isNews =
        result != update.verdict.result || reasonFor(result, state, update.expectation) != update.verdict.reason;
    if (isNews && !isUpdatedElsewhere(state.key)) end(state.key, result);
}

bool UpdateSupervisor::mayUpdate(const InterfaceHolder& holder) {
    // A process that does not reply may be in the middle of an update.
    return holder.activity.empty() || holder.activity == kUpdateActivity;
}

// Another process of this product updates the printer, or has done so since the verdict was given. What it changes must
// not correct this verdict.
bool UpdateSupervisor::isUpdatedElsewhere(const std::string& key) {
    Course& course = _courses[key];
    if (course.isSettled || _services.locks == nullptr) return course.isSettled;
    const auto holder = _services.locks->heldElsewhere(key);
    // Kept once it is true: what that process has changed stays, also when its lock has ended.
    return course.isSettled = holder && mayUpdate(*holder);
}

// The engine works on an update that was judged already: it is open again.
void UpdateSupervisor::reopen(Update& update) {
    update.verdict = UpdateVerdict{};
    update.advice.clear();
    update.replacedBy.clear();
    _courses[update.state.key].isSettled = false;
    takeLock(update.state.key); // the engine works on the printer, even if another process has reserved it meanwhile
    keepInterface(update.state.key, true);
    startTicking();
}

} // namespace zul
