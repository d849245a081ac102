// How updates begin, and how the engine's alerts and events pass through the supervisor. Main queue; only
// printerEvent() runs on any thread. Called by the window and the commands to begin updates, and by the engine with
// alerts and events.
#include "update/UpdateSupervisor.h"

#include "Classes/AlertKind.h"
#include "Classes/FirmwareUpdate.h"
#include "Classes/Outlets.h"
#include "Classes/PrinterEvents.h"
#include "Classes/PrinterTypes.h"
#include "Classes/TBUSBPrinter.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/usb/IOReturn.h"
#include "protocol/StatusTexts.h"
#include "update/Update.h"
#include "update/UpdatePhase.h"
#include "update/UpdateServices.h"
#include "update/UpdateTexts.h"
#include "update/UpdateVerdict.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace zul {

namespace {

bool changesPlaces(const PrinterEvent& event) {
    return std::holds_alternative<events::Arrived>(event.what) || std::holds_alternative<events::Departed>(event.what);
}

} // namespace

UpdateSupervisor::UpdateSupervisor(UpdateServices services, UpdateSettings settings)
    : _services(std::move(services)), _settings(settings),
      _monitor(_services.clock,
               [this](const std::string& key) {
                   _services.mainQueue.async([weak = std::weak_ptr(_self), key] {
                       if (const auto self = weak.lock()) (*self)->refresh(key);
                   });
               }),
      _self(std::make_shared<UpdateSupervisor*>(this)) {}

UpdateSupervisor::~UpdateSupervisor() {
    if (_timer != 0) _services.clock.cancel(_timer);
}

// ---- the beginning --------------------------------------------------------------------------------------------------

void UpdateSupervisor::begin(const Printer& printer, Equal equal) {
    const std::string key = printer->keyUSBdevice();
    if (!reasonAgainst(key).empty()) return;
    // The open update is kept, because its first image may still succeed.
    if (mayGetSecondImage(key)) {
        startOnceMore(printer);
        return;
    }
    makeUpdate(key, printer);
    beginMonitor(key, *printer);
    startTicking();
    // Without reports of arrivals the restarts of the update would never be noticed.
    if (!areArrivalsSeen()) {
        end(key, UpdateResult::cannotFollow);
        return;
    }
    if (!takeLock(key)) {
        end(key, UpdateResult::busy);
        return;
    }
    learnUsual(key);
    // The printer is queried before the operator is asked, so that an update which cannot begin asks nothing.
    if (!askFirst(key, printer, equal)) continueBegin(key, equal);
}

// Starts the engine again for an open update. The first start may still complete, and is followed as before.
void UpdateSupervisor::startOnceMore(const Printer& printer) {
    const std::string key = printer->keyUSBdevice();
    if (const auto result = whatForbids(key, *printer)) {
        Update refused = _updates[key];
        if (*result == UpdateResult::busy) refused.state.holder = _courses[key].holder;
        judge(refused, *result);
        note(refused.verdict.reason + (refused.advice.empty() ? "" : ". " + refused.advice));
        return;
    }
    _monitor.touch(key);
    _updates[key].isDismissed = false;
    refresh(key);
    printer->updateFirmware();
}

bool UpdateSupervisor::areArrivalsSeen() const {
    return !_services.seesArrivals || _services.seesArrivals();
}

bool UpdateSupervisor::areFilesFit(const std::string& key, TBUSBPrinterZUL& printer) {
    _courses[key].fileProblems = printer.archiveProblems();
    return _courses[key].fileProblems.empty();
}

// What must be right before every start that leads to an image, however the operator asks for it. The lock is taken
// last, so that it is kept only for an update that begins.
std::optional<UpdateResult> UpdateSupervisor::whatForbids(const std::string& key, TBUSBPrinterZUL& printer) {
    if (!areArrivalsSeen()) return UpdateResult::cannotFollow;
    if (!areFilesFit(key, printer)) return UpdateResult::badFiles;
    if (!takeLock(key)) return UpdateResult::busy;
    return std::nullopt;
}

void UpdateSupervisor::note(const std::string& text) const {
    if (_observer != nullptr) _observer->noteDidArise(text);
}

Update& UpdateSupervisor::makeUpdate(const std::string& key, const Printer& printer) {
    Course course;
    course.pendingAlerts = _courses[key].pendingAlerts; // they may be of an earlier update
    course.locationID = printer->locationNumber();
    course.vendorID = printer->vendorNumber();
    course.productID = printer->productNumber();
    // A claimed printer keeps its interface open after an update that has changed nothing.
    course.wasClaimed = printer->ownership() == Ownership::thisProgram;
    course.serialNumbers = serialNumbersOf(*printer);
    if (_monitor.wasAskedForAll(key)) course.ownSerialNumber = serialNumberOf(*printer);
    _courses[key] = std::move(course);
    Update& update = _updates[key] = Update{};
    update.name = displayNameOf(*printer);
    update.model = printer->model().value_or("");
    update.picture = printer->image().value_or("");
    update.location = printer->locationText();
    update.expectation = expectationFor(printer->productNumber());
    update.printer = printer;
    return update;
}

void UpdateSupervisor::beginMonitor(const std::string& key, TBUSBPrinterZUL& printer) {
    _monitor.beginUpdate({.key = key,
                          .attachment = printer.creationToken(),
                          .installedVersion = printer.firmwareVersion(),
                          .availableVersion = _updates[key].expectation.version,
                          .tables = _updates[key].expectation.tables});
    refresh(key);
}

// Queries the printer where that is necessary before its update, then calls continueBegin(). False if no query is
// needed. The engine uses the printer's last status text, which may be from before its restart: an update must not
// begin before this attachment has reported a status of its own. The version may be missing because an earlier program
// ended in the middle of a payload: since then the printer has taken the queries for the rest of that payload.
bool UpdateSupervisor::askFirst(const std::string& key, const Printer& printer, Equal equal) {
    if (!printer->printerCommandQueue()) return false;
    if (!_monitor.hasReportedStatus(key)) {
        printer->updatePrinterStatus();
    } else if (!printer->firmwareVersion() && printer->printerStatus() != textForStatus(kLoaderStatus)) {
        printer->updateInfo();
    } else {
        return false;
    }
    printer->performInlineOnCommandQueue([weak = std::weak_ptr(_self), &mainQueue = _services.mainQueue, key, equal] {
        mainQueue.async([weak, key, equal] {
            if (const auto self = weak.lock()) (*self)->continueBegin(key, equal);
        });
    });
    return true;
}

void UpdateSupervisor::continueBegin(const std::string& key, Equal equal) {
    const auto found = _updates.find(key);
    if (found == _updates.end() || !found->second.isOpen() || _courses[key].isBegun) return;
    refresh(key);
    const Printer printer = found->second.printer.lock();
    if (!printer || printer->isReleased()) {
        end(key, UpdateResult::left);
    } else if (found->second.state.isHeldElsewhere()) {
        end(key, UpdateResult::busy);
    } else if (printer->printerCommandQueue() && !_monitor.hasReportedStatus(key)) {
        // A printer that may not be opened was not asked.
        const bool isMute = printer->openStatus() != kIOReturnNotPrivileged;
        end(key, isMute ? UpdateResult::unanswered : UpdateResult::notOpened);
    } else if (equal == Equal::skip && isUpToDate(*printer)) {
        end(key, UpdateResult::upToDate);
    } else if (!areFilesFit(key, *printer)) {
        end(key, UpdateResult::badFiles); // before the first question to the operator
    } else {
        start(key);
    }
}

// The record is on the disk before the first command, so that the next start of a program finds an interrupted update.
void UpdateSupervisor::start(const std::string& key) {
    record(key, [weak = std::weak_ptr(_self), key] {
        if (const auto self = weak.lock()) (*self)->startEngine(key);
    });
}

void UpdateSupervisor::startEngine(const std::string& key) {
    const auto found = _updates.find(key);
    if (found == _updates.end() || !found->second.isOpen() || _courses[key].isBegun) return;
    const Printer printer = found->second.printer.lock();
    if (!printer || printer->isReleased()) {
        end(key, UpdateResult::left);
        return;
    }
    _courses[key].isBegun = true;
    keepInterface(key, true);
    printer->updateFirmware();
}

bool UpdateSupervisor::isUpToDate(TBUSBPrinterZUL& printer) const {
    if (isLastUpdateIncomplete(printer)) return false;
    const UpdateExpectation expectation = expectationFor(printer.productNumber());
    if (!expectation.version || printer.firmwareVersion() != expectation.version) return false;
    return std::ranges::all_of(expectation.tableVersions, [&](const auto& table) {
        const auto installed = printer.infoText(table.first.c_str());
        // A table that the printer does not report cannot be compared; it is no reason to write all tables again.
        return !installed || !isTableVersion(*installed) || table.second.contains(*installed);
    });
}

// Makes an update of a printer that was found in its loader: its alert, not begin(), starts the engine.
void UpdateSupervisor::adopt(const std::string& key) {
    const Printer printer = attached(key);
    if (!printer) return;
    makeUpdate(key, printer);
    if (_monitor.state(key)) {
        _monitor.setAvailable(key, _updates[key].expectation.version, _updates[key].expectation.tables);
    } else {
        beginMonitor(key, *printer);
    }
    _courses[key].isBegun = true;
    keepInterface(key, true);
    learnUsual(key);
    startTicking();
    refresh(key);
}

void UpdateSupervisor::keepInterface(const std::string& key, bool isKept) {
    if (_services.setKept) _services.setKept(_courses[key].locationID, isKept);
}

// ---- alerts ---------------------------------------------------------------------------------------------------------

void UpdateSupervisor::beginAlert(AlertDescription alert) {
    const std::string key = alert.printerKey;
    const auto found = _updates.find(key);
    // The report is shown with the verdict, which needs the replies that come after it.
    const bool isReport = alert.kind == AlertKind::success || alert.kind == AlertKind::problem;
    if (isReport && found != _updates.end() && found->second.isOpen()) {
        _courses[key].reports.push_back(std::move(alert));
        refresh(key);
        return;
    }
    if (!key.empty()) {
        ++_courses[key].pendingAlerts;
        alert.completion = [weak = std::weak_ptr(_self), asked = alert](int answer) {
            if (const auto self = weak.lock()) (*self)->answered(asked, answer);
        };
        if (found != _updates.end()) refresh(key);
    }
    _services.alerts.beginAlert(std::move(alert));
}

void UpdateSupervisor::answered(const AlertDescription& alert, int answer) {
    const std::string& key = alert.printerKey;
    --_courses[key].pendingAlerts;
    // The time until the operator answered is not a delay of the printer.
    if (const auto update = _updates.find(key); update != _updates.end() && update->second.isOpen())
        _monitor.touch(key);
    if (alert.kind == AlertKind::loaderFound && answer == kAlertSecondButton) {
        adoptThen(alert, answer);
        return;
    }
    if (alert.completion) alert.completion(answer);
    const auto found = _updates.find(key);
    if (found == _updates.end()) return;
    if (alert.kind == AlertKind::notNeeded && found->second.isOpen()) end(key, UpdateResult::newerInstalled);
    refresh(key);
}

// The operator has agreed to update a printer that was found in its loader. The engine gets the answer after the
// printer is reserved and the update recorded. If the update may not begin, the engine gets no answer: its advice would
// be to switch the printer off and on, which does not help.
void UpdateSupervisor::adoptThen(const AlertDescription& alert, int answer) {
    const std::string key = alert.printerKey;
    if (const std::string reason = reasonAgainst(key); !reason.empty()) {
        note(reason); // an update was begun while the question waited
        return;
    }
    const Printer printer = attached(key);
    if (!printer) {
        if (alert.completion) alert.completion(answer); // the engine knows that the printer has left
        return;
    }
    // The printer has left and come back: its new object asks the same question, and only that answer can start it.
    if (alert.attachment != printer->creationToken()) return;
    _monitor.endUpdate(key); // the state of an earlier update must not be used for this one
    adopt(key);
    if (const auto result = whatForbids(key, *printer)) {
        end(key, *result);
        return;
    }
    record(key, [weak = std::weak_ptr(_self), key, completion = alert.completion, answer] {
        const auto self = weak.lock();
        if (!self || !completion) return;
        const auto found = (*self)->_updates.find(key);
        if (found != (*self)->_updates.end() && found->second.isOpen()) completion(answer); // else it was stopped
    });
}

// The engine's report depends on the tables alone. If the verdict differs from it, the verdict is shown first.
void UpdateSupervisor::showReports(const std::string& key) {
    for (AlertDescription& report : std::exchange(_courses[key].reports, {})) {
        const bool saysSuccess = report.kind == AlertKind::success;
        if (saysSuccess != _updates[key].verdict.isSuccess()) showVerdictFirst(_updates[key], report);
        beginAlert(std::move(report));
    }
}

void UpdateSupervisor::showVerdictFirst(const Update& update, const AlertDescription& report) {
    AlertDescription verdict;
    verdict.kind = AlertKind::verdict;
    if (update.verdict.isSuccess()) {
        verdict.messageText = Bundle::localized(operatorText("The update is complete."));
        verdict.informativeText = localizedFormat("The printer reports %s.", textOrNull(update.state.currentVersion));
    } else {
        verdict.messageText = Bundle::localized(operatorText("The update is not complete."));
        verdict.informativeText = localizedFormat("Reason: %s.", update.verdict.reason);
        const std::string advice = adviceAfter(update.verdict.result, update.state);
        if (!advice.empty()) verdict.informativeText += "\n\n" + advice;
        verdict.style = AlertStyle::critical;
    }
    verdict.buttons = {Bundle::localized("OK")};
    verdict.escapeButton = 0;
    verdict.iconName = report.iconName;
    verdict.printerKey = report.printerKey;
    verdict.printerName = report.printerName;
    beginAlert(std::move(verdict));
}

// ---- events ---------------------------------------------------------------------------------------------------------

void UpdateSupervisor::printerEvent(const PrinterEvent& event) {
    const auto* const stored = std::get_if<events::ProgressStored>(&event.what);
    const bool isUnderWay =
        stored != nullptr && stored->value > 0 && stored->value < static_cast<std::int64_t>(UpdateProgress::finished);
    // A dismissed update may continue, with its tables as the first event.
    const bool hasTables = std::holds_alternative<events::TableBegun>(event.what);
    const bool isNew = (isUnderWay || hasTables) && !_monitor.state(event.key);
    // Follow it from this event on; adopt() fills in the rest on the main queue.
    if (isNew) _monitor.beginUpdate({.key = event.key, .attachment = event.attachment});
    const auto holder = _monitor.holder(event.key);
    _monitor.printerEvent(event);
    if (holder != _monitor.holder(event.key)) {
        _services.mainQueue.async([weak = std::weak_ptr(_self), key = event.key] {
            if (const auto self = weak.lock()) (*self)->handleHolder(key);
        });
    }
    // All other events change only the state, whose changes the monitor reports itself.
    const bool isForMain = isNew || std::holds_alternative<events::Declined>(event.what) ||
                           std::holds_alternative<events::AnswersFailed>(event.what) || changesPlaces(event) ||
                           std::holds_alternative<events::QuestionsEnded>(event.what);
    if (!isForMain) return;
    _services.mainQueue.async([weak = std::weak_ptr(_self), event] {
        if (const auto self = weak.lock()) (*self)->handleEvent(event);
    });
}

// Another process of this product that updates the printer may change its versions. This process reads them only when
// it can open the printer again, and must not correct the verdict of its own ended update by them.
void UpdateSupervisor::handleHolder(const std::string& key) {
    const auto holder = _monitor.holder(key);
    const auto found = _updates.find(key);
    const bool isUpdated = holder && holder->kind == InterfaceHolder::Kind::ownProgram && mayUpdate(*holder);
    if (isUpdated && found != _updates.end() && !found->second.isOpen()) _courses[key].isSettled = true;
    if (_observer != nullptr) _observer->conditionsMayHaveChanged();
}

void UpdateSupervisor::handleEvent(const PrinterEvent& event) {
    if (const auto* const declined = std::get_if<events::Declined>(&event.what)) {
        handleDeclined(event.key, declined->question);
    } else if (changesPlaces(event)) {
        lookForReturns();
    } else if (std::holds_alternative<events::AnswersFailed>(event.what)) {
        if (_observer != nullptr) _observer->conditionsMayHaveChanged();
    } else if (std::holds_alternative<events::QuestionsEnded>(event.what)) {
        if (_observer != nullptr) _observer->conditionsMayHaveChanged();
        lookForReturns();
        if (std::get<events::QuestionsEnded>(event.what).isComplete) {
            recogniseReturn(event);
        } else {
            releaseInterfaces(event.key, event.attachment);
        }
    } else if (!_updates.contains(event.key)) {
        adopt(event.key);
        if (!_updates.contains(event.key)) return; // the printer has left already
        takeLock(event.key);                       // the update runs already, even if another process has the lock
        record(event.key, {});
    }
}

void UpdateSupervisor::handleDeclined(const std::string& key, AlertKind question) {
    const auto found = _updates.find(key);
    if (found == _updates.end() || !found->second.isOpen()) return;
    if (found->second.state.phase != UpdatePhase::checking) return; // of a second start; the first one continues
    switch (question) {
    case AlertKind::notReady:
        end(key, UpdateResult::notReady);
        return;
    case AlertKind::busy:
        end(key, UpdateResult::busy);
        return;
    case AlertKind::printerError:
        end(key, UpdateResult::notOpened);
        return;
    default:
        end(key, UpdateResult::declined);
        return;
    }
}

} // namespace zul
