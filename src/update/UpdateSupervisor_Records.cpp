// What other processes and later runs read of an update: the printer's lock and the history. And the updates that
// earlier runs did not complete. Main queue. Called by the other sources of the supervisor; interruptedText() and
// readInterrupted() also by the window and the commands.
#include "Classes/PrinterTypes.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/FirmwareArchive.h"
#include "archive/ProductTable.h"
#include "platform/dispatch/Clock.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/LocalTime.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/usb/PrinterReservations.h"
#include "protocol/StatusTexts.h"
#include "update/Update.h"
#include "update/UpdatePhase.h"
#include "update/UpdateRecord.h"
#include "update/UpdateSupervisor.h"
#include "update/UpdateTexts.h"
#include "update/UpdateVerdict.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace zul {

namespace {

// The first of the records that is about this printer; null if there is none.
const UpdateRecord* recordOfPrinter(const std::vector<UpdateRecord>& records, const TBUSBPrinterZUL& printer) {
    UpdateRecord attached;
    attached.key = printer.keyUSBdevice();
    attached.model = printer.model().value_or("");
    attached.serial = serialNumberOf(printer);
    const auto found =
        std::ranges::find_if(records, [&](const UpdateRecord& one) { return isSamePrinter(one, attached); });
    return found == records.end() ? nullptr : &*found;
}

} // namespace

// ---- the lock -------------------------------------------------------------------------------------------------------

// Reserves the printer for its update. False if another process has reserved it. If the operator has claimed the
// printer in this process, the update gets the lock of the claim. If the system refuses locks, the update begins
// without one, and the operator is notified of the reason.
bool UpdateSupervisor::takeLock(const std::string& key) {
    Course& course = _courses[key];
    if (_services.locks == nullptr || course.lock) return true;
    if (_services.takeClaim) course.lock = _services.takeClaim(key);
    course.isClaimLock = course.lock.has_value();
    if (course.lock) {
        course.lock->setActivity(kUpdateActivity);
        course.lockedPhase.reset();
        return true;
    }
    const Printer printer = attached(key);
    auto result = _services.locks->tryLock(key, kUpdateActivity,
                                           printer ? printer->raw1284DeviceID().value_or("") : std::string());
    // Each phase tries to take a missing lock again, but the same problem is reported only once.
    const bool isNews = std::exchange(course.lockProblem, result.problem) != result.problem;
    if (isNews && !result.problem.empty() && _observer != nullptr) _observer->noteDidArise(result.problem);
    course.lock = std::move(result.lock);
    course.lockedPhase.reset();
    course.holder = result.holder;
    return !result.isRefused();
}

// A printer that has restarted is not claimed any more: its claim's lock ends with the update.
void UpdateSupervisor::releaseLock(const std::string& key) {
    Course& course = _courses[key];
    // Released by the end of this function unless it goes back to the claim.
    auto lock = std::exchange(course.lock, std::nullopt);
    const bool isStillClaimed = course.isClaimLock && _updates[key].verdict.isUntouched();
    if (lock && isStillClaimed && _services.returnClaim) _services.returnClaim(key, std::move(*lock));
}

// Puts the phase into the lock's replies to other processes.
void UpdateSupervisor::showPhaseToOthers(const Update& update) {
    Course& course = _courses[update.state.key];
    if (course.lockedPhase == update.state.phase) return;
    // The system may have refused the lock when the update began: try again. Not while isBegun is false: begin() has
    // just tried.
    if (!course.lock && update.isOpen() && course.isBegun) takeLock(update.state.key);
    // Set it also without the lock: another process may be slow to reply, and is asked only once per phase.
    course.lockedPhase = update.state.phase;
    if (course.lock) course.lock->setPhase(phaseRow(update.state.phase).name);
}

// ---- the history ----------------------------------------------------------------------------------------------------

UpdateRecord UpdateSupervisor::recordOf(const Update& update) const {
    UpdateRecord record;
    record.key = update.state.key;
    record.place = update.location;
    record.model = update.model;
    record.versionBefore = update.state.previousVersion;
    record.versionAvailable = update.expectation.version;
    const Printer printer = update.printer.lock();
    if (!printer) return record;
    // Not the serial number of the USB descriptors: a printer in its loader has another one.
    record.serial = serialNumberOf(*printer);
    const Product* const product = productWithID(printer->productNumber());
    if (_services.archive == nullptr || product == nullptr) return record;
    for (const ArchiveFile& file : _services.archive->survey(*product, printer->className()).files) {
        if (file.wasRead()) record.digests[file.name] = file.digest;
        record.archiveFolder = file.path.parent_path().string();
    }
    return record;
}

// Begins the record of the update. stored runs when it is on the disk or could not be stored; at once without a
// history.
void UpdateSupervisor::record(const std::string& key, Block stored) {
    if (_services.recorder == nullptr) {
        if (stored) stored();
        return;
    }
    _courses[key].isRecorded = true;
    _services.recorder->begin(key, recordOf(_updates[key]), std::move(stored));
    _services.recorder->noteState(_updates[key].state);
}

// The serial number for the record of a successful update; empty if it is not known. A printer that was updated from
// its loader could not report its number when the record was begun.
std::string UpdateSupervisor::serialAfterSuccess(const Update& update) const {
    // Before a whole round of queries, the stored number may be that of an earlier printer at this place.
    const bool isKnown = update.replacedBy.empty() && _monitor.wasAskedForAll(update.state.key);
    if (!update.verdict.isSuccess() || !isKnown) return {};
    const Printer printer = attached(update.state.key);
    return printer ? serialNumberOf(*printer) : "";
}

// An update that never began has a record, too, so that the administrator of many machines can read the reason. A
// printer that is up to date has no record, because it was not updated.
void UpdateSupervisor::completeRecord(Update& update) {
    const std::string& key = update.state.key;
    const UpdateResult result = update.verdict.result;
    if (_services.recorder == nullptr || result == UpdateResult::upToDate) return;
    // Recorded as begun and ended at once.
    if (!_courses[key].isRecorded) record(key, {});
    const std::string serial = serialAfterSuccess(update);
    _services.recorder->complete(
        update.state,
        {.verdict = nameOfResult(result), .isSuccess = update.verdict.isSuccess(), .reason = update.verdict.reason},
        serial);
    if (!update.verdict.isSuccess()) {
        readInterrupted([weak = std::weak_ptr(_self)] {
            const auto self = weak.lock();
            if (self && (*self)->_observer != nullptr) (*self)->_observer->conditionsMayHaveChanged();
        });
        return;
    }
    // The lists in memory follow the file, without reading it again.
    UpdateRecord completed = recordOf(update);
    if (!serial.empty()) completed.serial = serial;
    for (auto* const records : {&_interrupted, &_failed}) {
        std::erase_if(*records, [&](const UpdateRecord& record) { return isSamePrinter(record, completed); });
    }
}

void UpdateSupervisor::learnUsual(const std::string& key) {
    const std::string& model = _updates[key].model;
    if (_services.recorder == nullptr || model.empty()) return;
    _services.recorder->readUsual(model, [weak = std::weak_ptr(_self), key](UsualDurations durations) {
        const auto self = weak.lock();
        if (!self) return;
        const auto found = (*self)->_updates.find(key);
        if (found != (*self)->_updates.end()) found->second.usual = std::move(durations);
    });
}

// ---- earlier runs ---------------------------------------------------------------------------------------------------

void UpdateSupervisor::readInterrupted(Block done) {
    if (_services.recorder == nullptr) {
        done();
        return;
    }
    _services.recorder->readUnfinished([weak = std::weak_ptr(_self), done](UpdateRecorder::Unfinished unfinished) {
        const auto self = weak.lock();
        if (!self) return;
        std::erase_if(unfinished.interrupted, [](const UpdateRecord& record) { return !record.hasSentCommands(); });
        (*self)->_interrupted = std::move(unfinished.interrupted);
        (*self)->_failed = std::move(unfinished.failed);
        done();
    });
}

const UpdateRecord* UpdateSupervisor::incompleteRecord(TBUSBPrinterZUL& printer) const {
    const UpdateRecord* const interrupted = recordOfPrinter(_interrupted, printer);
    return interrupted != nullptr ? interrupted : recordOfPrinter(_failed, printer);
}

// After an incomplete update the versions do not show whether all tables were written.
bool UpdateSupervisor::isLastUpdateIncomplete(TBUSBPrinterZUL& printer) const {
    const auto found = _updates.find(printer.keyUSBdevice());
    if (found != _updates.end() && !found->second.isOpen() && !found->second.verdict.isUntouched()) {
        return !found->second.verdict.isSuccess();
    }
    return incompleteRecord(printer) != nullptr;
}

std::string UpdateSupervisor::interruptedText(TBUSBPrinterZUL& printer) const {
    const std::string text = startText(printer);
    if (text.empty() || !_monitor.isIdentityMissing(printer.keyUSBdevice())) return text;
    // It cannot be updated before a restart.
    return localizedFormat("%s; it does not report its device ID: switch it off and on first", text);
}

std::string UpdateSupervisor::startText(TBUSBPrinterZUL& printer) const {
    const auto found = _updates.find(printer.keyUSBdevice());
    const bool isUnderWay = found != _updates.end() && found->second.isOpen() && !found->second.isDismissed;
    if (isUnderWay || printer.ownership() == Ownership::otherProgram) return {};
    if (!reasonAgainst(printer.keyUSBdevice()).empty()) return {}; // a hidden update whose printer still replies
    const UpdateRecord* const record = incompleteRecord(printer);
    if (record != nullptr && record->verdicts.empty()) {
        return localizedFormat("update was interrupted at %s, start it to complete", localTimeText(record->begun));
    }
    if (record != nullptr) {
        return localizedFormat("update of %s is not complete, start it again", localTimeText(record->begun));
    }
    // Until this attachment has reported a status, the text is that of an earlier one.
    if (!_monitor.hasReportedStatus(printer.keyUSBdevice())) return {};
    if (printer.printerStatus() != textForStatus(kLoaderStatus)) return {};
    return Bundle::localized(operatorText("start the update to complete it"));
}

} // namespace zul
