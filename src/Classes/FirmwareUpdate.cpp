// The checks and questions before an update, its two halves and its report. Actions and answers arrive on the main
// queue; everything that talks to the printer runs on its command queue. Called by the printer's operations of the same
// purpose.
#include "Classes/FirmwareUpdate.h"

#include "Classes/TBUSBPrinterZUL.h"
#include "archive/ProductTable.h"
#include "protocol/CommandFrame.h"
#include "protocol/StatusTexts.h"

#include "platform/dispatch/Queue.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/UserDefaults.h"

namespace zul {

namespace {

constexpr auto kStatusPollPause = std::chrono::milliseconds(500);
constexpr const char* kAgreedKey = "customerDidAgree";
constexpr const char* kUpdatedElsewhere = "%s is being updated through its other interface";

} // namespace

// Keeps the printer, and with it the update, for a block that runs later.
FirmwareUpdate::Self FirmwareUpdate::shared() {
    return {_printer.shared_from_this(), this};
}

// ---- before the update ----------------------------------------------------------------------------------------------

void FirmwareUpdate::start() {
    if (isCarriedElsewhere()) return;
    if (!_printer.printerCommandQueue()) {
        showPrinterError(); // it did not report its ID: it has no queue for the update
        return;
    }
    if (_printer.verifyFirmwareArchive() && _files.image()) {
        askForAgreement();
        return;
    }
    _printer.showCustomAlertWithTitle(_printer.alertFactory().corruptionWithQuit(
        [self = shared()](int /*answer*/) { self->_printer.environment().application.terminate(); }));
    _printer.emit(events::ArchiveRefused{});
}

void FirmwareUpdate::askForAgreement() {
    const Self self = shared();
    _isAgreed = false;
    AlertDescription alert = _printer.alertFactory().agreement(
        _printer.productNumber() == kProductVKRZ7 ? _printer.RZ7UpdateWarningText()
                                                  : _printer.genericUpdateWarningText(),
        [self](CheckBox& sender) { self->_printer.setToggleAgreed(&sender); });
    alert.layout = [self](AlertLayout& layout) {
        self->setAgreed(false); // it may have waited while an earlier one was ticked
        if (layout.buttonCount() <= AlertFactory::kContinueButton) return;
        layout.bindButtonEnabled(AlertFactory::kContinueButton, self->_printer.shared_from_this(), kAgreedKey,
                                 [self] { return self->isAgreed(); });
    };
    alert.completion = [self, agree = alert.accessory](int answer) {
        if (answer == kAlertSecondButton && agree->state == 1) {
            self->proceedWhenReady();
            return;
        }
        self->_printer.emit(events::Declined{.question = AlertKind::agreement});
        if (answer == kAlertFirstButton) self->_printer.environment().application.terminate();
    };
    _printer.showCustomAlertWithTitle(std::move(alert));
}

void FirmwareUpdate::setAgreed(bool isAgreed) {
    const KeyChange change(_printer, kAgreedKey);
    _isAgreed = isAgreed;
}

void FirmwareUpdate::proceedWhenReady() {
    if (isCarriedElsewhere()) return;
    if (!_printer.printerCommandQueue()) {
        showPrinterError();
        return;
    }
    if (_printer.printerStatus() == textForStatus(kLoaderStatus)) {
        // A wait for "Idle" may hold the queue: the operator's request is what counts now.
        supersedeWait();
        uploadImage();
        return;
    }
    if (isNewerThanOffered() && !_printer.environment().userDefaults.boolForKey(kInstallOlderFirmwareVersion)) {
        _printer.showCustomAlertWithTitle(_printer.alertFactory().notNeeded(_files.installedVersionNumber()));
        return;
    }
    _printer.openInterface([self = shared()](IOReturn code) { self->checkReadiness(code); });
}

// A device with two printer interfaces has two objects, and its update is that of one of them.
bool FirmwareUpdate::isCarriedElsewhere() const {
    const bool isUpdated =
        _printer.environment().deviceObjects->isUpdatedElsewhere(_printer.keyUSBdevice(), _printer.creationToken());
    if (isUpdated) logText(kUpdatedElsewhere, _printer.descriptionUTF8());
    return isUpdated;
}

bool FirmwareUpdate::claim() {
    const bool isBegun =
        _printer.environment().deviceObjects->beginUpdate(_printer.keyUSBdevice(), _printer.creationToken());
    if (!isBegun) logText(kUpdatedElsewhere, _printer.descriptionUTF8());
    return isBegun;
}

// Equal versions are not newer: the same version is installed again.
bool FirmwareUpdate::isNewerThanOffered() {
    return _files.installedVersionNumber() > _files.offeredVersionNumber();
}

void FirmwareUpdate::checkReadiness(IOReturn openResult) {
    if (openResult == kIOReturnExclusiveAccess) {
        _printer.showCustomAlertWithTitle(_printer.alertFactory().busy(proceedOrDecline(AlertKind::busy)));
        return;
    }
    if (openResult != kIOReturnSuccess) {
        showPrinterError();
        return;
    }
    bool isAnswered = false;
    _printer.getPrinterStatus([&isAnswered, this](const OptionalText& rawStatus) { // inline: this is the command queue
        isAnswered = true;
        if (rawStatus == kReadyStatus) {
            confirm();
            return;
        }
        _printer.showCustomAlertWithTitle(
            _printer.alertFactory().notReady(textForStatus(rawStatus), proceedOrDecline(AlertKind::notReady)));
    });
    if (!isAnswered) _printer.emit(events::CheckFailed{});
}

void FirmwareUpdate::showPrinterError() {
    _printer.showCustomAlertWithTitle(_printer.alertFactory().printerError(proceedOrDecline(AlertKind::printerError)));
}

// The answer to an alert that offers to try again.
std::function<void(int answer)> FirmwareUpdate::proceedOrDecline(AlertKind question) {
    return [self = shared(), question](int answer) {
        if (answer == kAlertFirstButton) {
            self->proceedWhenReady();
        } else {
            self->_printer.emit(events::Declined{.question = question});
        }
    };
}

void FirmwareUpdate::confirm() {
    _printer.showCustomAlertWithTitle(
        _printer.alertFactory().confirmation(_files.offeredVersion(), [self = shared()](int answer) {
            if (answer == kAlertSecondButton) {
                self->enterLoader();
            } else {
                self->_printer.emit(events::Declined{.question = AlertKind::confirmation});
            }
        }));
}

// ---- first half -----------------------------------------------------------------------------------------------------

void FirmwareUpdate::enterLoader() {
    if (isCarriedElsewhere()) return;
    if (!_printer.firmwareVersion()) {
        // Never read: the update is started again once the printer is back.
        _printer.emit(events::ReenumerationBegun{});
        _printer.performInlineOnCommandQueue([self = shared()] {
            self->_printer.assertOnCommandQueue();
            static_cast<void>(self->_printer.reEnumerateUSBDevice());
        });
        return;
    }
    if (!_printer.verifyFirmwareArchive() || !_files.image()) {
        _printer.showCustomAlertWithTitle(_printer.alertFactory().corruption());
        _printer.emit(events::ArchiveRefused{});
        return;
    }
    if (!claim()) return;
    setInUpdateOnMain(true);
    _printer.openInterface([self = shared()](IOReturn code) {
        if (code == kIOReturnSuccess) self->sendEnterLoader();
    });
}

void FirmwareUpdate::sendEnterLoader() {
    _printer.assertOnCommandQueue();
    if (!waitForStatus(kReadyStatus)) return;
    overrideStatus("Updating firmware ...");
    // Both before the command: the printer may leave before the next line runs, and what is stored then is what its
    // successor finds.
    _printer.deviceInfoDict()->setString(HOLVEN_TBPrinterFirmwareVersionPrevious, _printer.firmwareVersion());
    _printer.deviceInfoDict()->setString(kUpdatedSerialNumber, _printer.idSerialNumber());
    setProgress(UpdateProgress::waitingForLoader);
    _exchange.orderRestart(kCommandEnterLoader, /*payload=*/nullptr);
    _printer.closeInterface(nullptr);
}

// ---- second half ----------------------------------------------------------------------------------------------------

void FirmwareUpdate::showDamagedFileAlert() {
    _printer.showCustomAlertWithTitle(_printer.alertFactory().damagedFile());
    _printer.emit(events::ArchiveRefused{}); // after the alert: whoever follows may end the update at once
}

void FirmwareUpdate::uploadImage() {
    if (!_printer.verifyFirmwareArchive()) {
        logText("failed to verify firmware archive");
        showDamagedFileAlert();
        return;
    }
    if (!claim()) return;
    _printer.openInterface([self = shared()](IOReturn code) {
        if (code == kIOReturnSuccess) self->writeImage();
    });
}

void FirmwareUpdate::writeImage() {
    _printer.assertOnCommandQueue();
    overrideStatus("Writing firmware ...");
    logText("failed to verify firmware archive"); // at every upload, though nothing failed: log readers know it here
    if (const SharedData image = _files.verifiedImage()) {
        logText("Uploading firmware to printer");
        setProgress(UpdateProgress::waitingForFirmware);
        _exchange.orderRestart(kCommandProgramFlash, image.get());
    } else {
        logText("FAILED Uploading firmware to printer (bad file)");
        showDamagedFileAlert();
    }
    _printer.closeInterface(nullptr);
}

// ---- after the restarts ---------------------------------------------------------------------------------------------

void FirmwareUpdate::finish() {
    logText("%s", "-[TBUSBPrinterZUL finishFirmwareUpdate]");
    updateTables([self = shared()](bool anyTable) {
        logText("%s", "-[TBUSBPrinterZUL finishFirmwareUpdate]_block_invoke");
        self->report(anyTable);
    });
}

// The tables alone decide which report the operator gets; comparing versions is left to whoever watches the update.
void FirmwareUpdate::report(bool anyTable) {
    const OptionalText previous = _printer.fact(HOLVEN_TBPrinterFirmwareVersionPrevious);
    const OptionalText version = _printer.firmwareVersion();
    _printer.showCustomAlertWithTitle(anyTable ? _printer.alertFactory().success(previous, version)
                                               : _printer.alertFactory().problem(previous, version));
    _printer.emit(events::UpdateReported{.anyTable = anyTable, .version = version});
    setInUpdateOnMain(false);
    _printer.updatePrinterStatus();
}

// ---- for several halves ---------------------------------------------------------------------------------------------

bool FirmwareUpdate::waitForStatus(const std::string& code) {
    _printer.assertOnCommandQueue();
    const int generation = _waitGeneration;
    for (;;) {
        if (_printer.openInterface() == kIOReturnSuccess && statusEquals(code)) return true;
        if (_printer.isReleased() || _waitGeneration != generation) return false;
        _printer.environment().clock.sleepFor(kStatusPollPause);
    }
}

// The shown texts are compared: two codes that read the same are the same to the operator. No answer is not equal.
bool FirmwareUpdate::statusEquals(const std::string& code) {
    bool equal = false;
    // The loop asks again by itself.
    _printer.askForStatus(IfMissing::dropLateReplies, [&equal, &code](const OptionalText& rawStatus) { // inline
        equal = textForStatus(rawStatus) == textForStatus(code);
    });
    return equal;
}

void FirmwareUpdate::overrideStatus(const std::string& text) {
    logText("forcing printer status string to \"%s\"", text);
    _printer.environment().mainQueue.async([self = shared(), text] {
        assertOnMainQueue();
        self->_printer.setPrinterStatus(text);
    });
}

void FirmwareUpdate::saveProgress(int progress) {
    _printer.environment().mainQueue.async([self = shared(), progress] {
        assertOnMainQueue();
        const std::string key = self->_printer.keyUSBdevice();
        const DeviceInfoPtr info = self->_printer.deviceInfoDict();
        info->set(HOLVEN_TBPrinterDeviceFirmwareStatus, std::int64_t{progress});
        logText("writing key:%s for dict:%s", key, info->description());
        self->_printer.environment().deviceInfo.setInfo(info, key);
    });
}

void FirmwareUpdate::setInUpdateOnMain(bool isInUpdate) {
    _printer.environment().mainQueue.async([self = shared(), isInUpdate] {
        assertOnMainQueue();
        self->_printer.setInFirmwareUpdate(isInUpdate);
    });
}

void FirmwareUpdate::setProgress(UpdateProgress progress) {
    _printer.deviceInfoDict()->set(HOLVEN_TBPrinterDeviceFirmwareStatus, static_cast<std::int64_t>(progress));
    _printer.emit(events::ProgressStored{.value = static_cast<std::int64_t>(progress)});
}

void FirmwareUpdate::clearProgress() {
    _printer.deviceInfoDict()->remove(HOLVEN_TBPrinterDeviceFirmwareStatus);
    _printer.emit(events::ProgressStored{});
}

} // namespace zul
