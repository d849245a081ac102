// How updates begin, and the engine's alerts and events on their way through. Main queue; events come on any thread.
#include "update/UpdateSupervisor.h"

#include "platform/foundation/LocalizedFormat.h"
#include "protocol/StatusTexts.h"

#include <algorithm>
#include <utility>

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
    if (mayGetSecondImage(key)) {
        startOnceMore(printer);
        return;
    }
    makeUpdate(key, printer);
    beginMonitor(key, *printer);
    startTicking();
    if (!areArrivalsSeen()) {
        end(key, UpdateResult::cannotFollow);
        return;
    }
    if (!takeLock(key)) {
        end(key, UpdateResult::busy);
        return;
    }
    learnUsual(key);
    if (!askFirst(key, printer, equal)) continueBegin(key, equal);
}

// The first start may still come to its end by itself, and is followed as before.
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

// What every start needs that leads to an image, however the operator asks for it. The lock is the last: it is kept
// only for an update that begins.
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
    course.pendingAlerts = _courses[key].pendingAlerts; // of an earlier update, perhaps
    course.locationID = printer->locationNumber();
    course.vendorID = printer->vendorNumber();
    course.productID = printer->productNumber();
    course.wasClaimed = printer->ownership() == Ownership::thisProgram;
    course.serialNumbers = serialNumbersOf(*printer);
    if (_monitor.wasAskedForAll(key)) course.ownSerialNumber = serialNumberOf(*printer);
    _courses[key] = std::move(course);
    Update& update = _updates[key] = Update{};
    update.name = nameOf(*printer);
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
                          .offeredVersion = _updates[key].expectation.version,
                          .tables = _updates[key].expectation.tables});
    refresh(key);
}

// The engine goes by the printer's last status text, which may be that of before its restart. An update begins only
// when this attachment has reported a status of its own. The version may be missing because an earlier program was cut
// off in the middle of a payload, whose rest the questions have been taken for since. False if nothing was asked.
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

// The record is on the disk before the first command: an end of the program after it is found by the next start.
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
        const auto installed = printer.fact(table.first.c_str());
        return !installed || !isTableVersion(*installed) || table.second.contains(*installed);
    });
}

// A printer that was found in its loader is updated without begin(): its own alert leads there.
void UpdateSupervisor::adopt(const std::string& key) {
    const Printer printer = _services.printerWithKey(key);
    if (!printer) return;
    makeUpdate(key, printer);
    if (_monitor.state(key)) {
        _monitor.setOffer(key, _updates[key].expectation.version, _updates[key].expectation.tables);
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
    // While a person thinks about it the printer is not silent.
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

// The operator wants a printer updated that was found in its loader. The engine gets the answer when the update may
// begin: by then it is reserved and recorded. Where it may not begin, the engine gets none: its own advice, to switch
// the printer off and on, would not help.
void UpdateSupervisor::adoptThen(const AlertDescription& alert, int answer) {
    const std::string key = alert.printerKey;
    if (const std::string reason = reasonAgainst(key); !reason.empty()) {
        note(reason); // begun in another way while the question waited
        return;
    }
    const Printer printer = _services.printerWithKey(key);
    if (!printer) {
        if (alert.completion) alert.completion(answer); // it has left meanwhile, which the engine knows
        return;
    }
    // It has left and come back since: its new object asks the same question, and only that answer can start it.
    if (alert.attachment != printer->creationToken()) return;
    _monitor.endUpdate(key); // what an earlier update came to says nothing about this one
    adopt(key);
    if (const auto result = whatForbids(key, *printer)) {
        end(key, *result);
        return;
    }
    record(key, [weak = std::weak_ptr(_self), key, completion = alert.completion, answer] {
        const auto self = weak.lock();
        if (!self || !completion) return;
        const auto found = (*self)->_updates.find(key);
        if (found != (*self)->_updates.end() && found->second.isOpen()) completion(answer); // stopped meanwhile if not
    });
}

// The engine's report goes by the tables alone. Where the facts differ, they are shown first.
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
    // The rest of an update that was dismissed may begin with its tables.
    const bool hasTables = std::holds_alternative<events::TableBegun>(event.what);
    const bool isNew = (isUnderWay || hasTables) && !_monitor.state(event.key);
    // Followed from this very event on; the rest is filled in on the main queue.
    if (isNew) _monitor.beginUpdate({.key = event.key, .attachment = event.attachment});
    const auto holder = _monitor.holder(event.key);
    _monitor.printerEvent(event);
    if (holder != _monitor.holder(event.key)) {
        _services.mainQueue.async([weak = std::weak_ptr(_self), key = event.key] {
            if (const auto self = weak.lock()) (*self)->handleHolder(key);
        });
    }
    const bool isForMain = isNew || std::holds_alternative<events::Declined>(event.what) ||
                           std::holds_alternative<events::AnswersFailed>(event.what) || changesPlaces(event) ||
                           std::holds_alternative<events::QuestionsEnded>(event.what);
    if (!isForMain) return;
    _services.mainQueue.async([weak = std::weak_ptr(_self), event] {
        if (const auto self = weak.lock()) (*self)->handleEvent(event);
    });
}

// What another process of ours changes in a printer while it has it is no news of an update that has ended here. This
// process learns of the change only when it may open the printer again.
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
            releaseInterface(event.key);
        }
    } else if (!_updates.contains(event.key)) {
        adopt(event.key);
        if (!_updates.contains(event.key)) return; // it has left already
        takeLock(event.key);                       // it is under way already, whoever else has the printer
        record(event.key, {});
    }
}

void UpdateSupervisor::handleDeclined(const std::string& key, AlertKind question) {
    const auto found = _updates.find(key);
    if (found == _updates.end() || !found->second.isOpen()) return;
    if (found->second.state.phase != UpdatePhase::checking) return; // a later start; the earlier one is still followed
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
