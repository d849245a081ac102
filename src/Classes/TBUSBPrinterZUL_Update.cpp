// The halves of an update and the restarts between them. Actions and answers arrive on the main queue; everything that
// talks to the printer runs on its command queue.
#include "Classes/TBUSBPrinterZUL.h"
#include "protocol/CommandFrame.h"
#include "protocol/StatusTexts.h"

#include "platform/dispatch/Queue.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/UserDefaults.h"

namespace zul {

namespace {

constexpr auto kStatusPollPause = std::chrono::milliseconds(500);
constexpr const char* kUpdatedElsewhere = "%s is being updated through its other interface";

} // namespace

// ---- before the update ----------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::updateFirmware() {
    if (isUpdatedElsewhere()) return;
    if (!printerCommandQueue()) {
        showPrinterError(); // it did not report its ID: it has no queue for the update
        return;
    }
    if (verifyFirmwareArchive() && firmwareBlob()) {
        ShowRZ7Warning();
        return;
    }
    showCustomAlertWithTitle(_alertFactory.corruptionWithQuit(
        [self = sharedSelf<TBUSBPrinterZUL>()](int /*answer*/) { self->_environment.application.terminate(); }));
    emit(events::ArchiveRefused{});
}

void TBUSBPrinterZUL::proceedWithUpdateWhenReady() {
    if (isUpdatedElsewhere()) return;
    if (!printerCommandQueue()) {
        showPrinterError();
        return;
    }
    if (printerStatus() == stringForVKStatusString(kLoaderStatus)) {
        // A wait for "Idle" may hold the queue: the operator's request is what counts now.
        supersedeWait();
        uploadFirmware();
        return;
    }
    if (isNewerThanOffered() && !_environment.userDefaults.boolForKey(kInstallOlderFirmwareVersion)) {
        showCustomAlertWithTitle(_alertFactory.notNeeded(installedFirmwareVersion()));
        return;
    }
    openInterface([self = sharedSelf<TBUSBPrinterZUL>()](IOReturn code) { self->checkReadiness(code); });
}

// A device with two printer interfaces has two objects, and its update is that of one of them.
bool TBUSBPrinterZUL::isUpdatedElsewhere() const {
    const bool isUpdated = _deviceObjects->isUpdatedElsewhere(keyUSBdevice(), creationToken());
    if (isUpdated) logText(kUpdatedElsewhere, descriptionUTF8());
    return isUpdated;
}

bool TBUSBPrinterZUL::beginUpdate() {
    const bool isBegun = _deviceObjects->beginUpdate(keyUSBdevice(), creationToken());
    if (!isBegun) logText(kUpdatedElsewhere, descriptionUTF8());
    return isBegun;
}

// Equal versions are not newer: the same version is installed again.
bool TBUSBPrinterZUL::isNewerThanOffered() {
    return installedFirmwareVersion() > availableFirmwareVersion();
}

void TBUSBPrinterZUL::checkReadiness(IOReturn openResult) {
    if (openResult == kIOReturnExclusiveAccess) {
        showCustomAlertWithTitle(_alertFactory.busy(proceedOrDecline(AlertKind::busy)));
        return;
    }
    if (openResult != kIOReturnSuccess) {
        showPrinterError();
        return;
    }
    bool isAnswered = false;
    getPrinterStatus([&isAnswered, this](const Text& rawStatus) { // inline: this is the command queue
        isAnswered = true;
        if (rawStatus == kReadyStatus) {
            updateFirmwareReady();
            return;
        }
        showCustomAlertWithTitle(
            _alertFactory.notReady(stringForVKStatusString(rawStatus), proceedOrDecline(AlertKind::notReady)));
    });
    if (!isAnswered) emit(events::CheckFailed{});
}

void TBUSBPrinterZUL::showPrinterError() {
    showCustomAlertWithTitle(_alertFactory.printerError(proceedOrDecline(AlertKind::printerError)));
}

// The answer to an alert that offers to try again.
std::function<void(int answer)> TBUSBPrinterZUL::proceedOrDecline(AlertKind question) {
    return [self = sharedSelf<TBUSBPrinterZUL>(), question](int answer) {
        if (answer == kAlertFirstButton) {
            self->proceedWithUpdateWhenReady();
        } else {
            self->emit(events::Declined{.question = question});
        }
    };
}

void TBUSBPrinterZUL::updateFirmwareReady() {
    showCustomAlertWithTitle(
        _alertFactory.confirmation(newFirmwareVersion(), [self = sharedSelf<TBUSBPrinterZUL>()](int answer) {
            if (answer == kAlertSecondButton) {
                self->updateFirmwareAndColorTables();
            } else {
                self->emit(events::Declined{.question = AlertKind::confirmation});
            }
        }));
}

// ---- first half -----------------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::updateFirmwareAndColorTables() {
    if (isUpdatedElsewhere()) return;
    if (!firmwareVersion()) {
        // Never read: the update is started again once the printer is back.
        emit(events::ReenumerationBegun{});
        performInlineOnCommandQueue([self = sharedSelf<TBUSBPrinterZUL>()] {
            self->assertOnCommandQueue();
            static_cast<void>(self->reEnumerateUSBDevice());
        });
        return;
    }
    if (!verifyFirmwareArchive() || !firmwareBlob()) {
        showCustomAlertWithTitle(_alertFactory.corruption());
        emit(events::ArchiveRefused{});
        return;
    }
    if (!beginUpdate()) return;
    _environment.mainQueue.async([self = sharedSelf<TBUSBPrinterZUL>()] { self->setInFirmwareUpdate(true); });
    openInterface([self = sharedSelf<TBUSBPrinterZUL>()](IOReturn code) {
        self->assertOnCommandQueue();
        if (code == kIOReturnSuccess) self->enterFirmwareUpdateMode();
    });
}

void TBUSBPrinterZUL::enterFirmwareUpdateMode() {
    if (!waitForPrinterStatusCode(kReadyStatus)) return;
    setOverridePrinterStatus("Updating firmware ...");
    // Both before the command: the printer may leave before the next line runs, and what is stored then is what its
    // successor finds.
    _deviceInfoDict->setString(HOLVEN_TBPrinterFirmwareVersionPrevious, firmwareVersion());
    setProgress(UpdateProgress::waitingForLoader);
    _exchange.orderRestart(kCommandEnterLoader, /*payload=*/nullptr);
    closeInterface(nullptr);
}

// ---- second half ----------------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::showDamagedFileAlert() {
    showCustomAlertWithTitle(_alertFactory.damagedFile());
    emit(events::ArchiveRefused{}); // after the alert: whoever follows may end the update at once
}

void TBUSBPrinterZUL::uploadFirmware() {
    if (!verifyFirmwareArchive()) {
        logText("failed to verify firmware archive");
        showDamagedFileAlert();
        return;
    }
    if (!beginUpdate()) return;
    openInterface([self = sharedSelf<TBUSBPrinterZUL>()](IOReturn code) {
        self->assertOnCommandQueue();
        if (code == kIOReturnSuccess) self->writeFirmwareImage();
    });
}

void TBUSBPrinterZUL::writeFirmwareImage() {
    setOverridePrinterStatus("Writing firmware ...");
    logText("failed to verify firmware archive"); // at every upload, though nothing failed: log readers know it here
    if (const SharedData blob = verifiedFirmwareBlob()) {
        logText("Uploading firmware to printer");
        setProgress(UpdateProgress::waitingForFirmware);
        _exchange.orderRestart(kCommandProgramFlash, blob.get());
    } else {
        logText("FAILED Uploading firmware to printer (bad file)");
        showDamagedFileAlert();
    }
    closeInterface(nullptr);
}

// ---- after the restarts ---------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::finishFirmwareUpdate() {
    logText("%s", "-[TBUSBPrinterZUL finishFirmwareUpdate]");
    updateColorTables([self = sharedSelf<TBUSBPrinterZUL>()](bool anyTable) {
        logText("%s", "-[TBUSBPrinterZUL finishFirmwareUpdate]_block_invoke");
        self->reportUpdate(anyTable);
    });
}

// The tables alone decide which report the operator gets; comparing versions is left to whoever watches the update.
void TBUSBPrinterZUL::reportUpdate(bool anyTable) {
    const Text previous = fact(HOLVEN_TBPrinterFirmwareVersionPrevious);
    showCustomAlertWithTitle(anyTable ? _alertFactory.success(previous, firmwareVersion())
                                      : _alertFactory.problem(previous, firmwareVersion()));
    emit(events::UpdateReported{.anyTable = anyTable, .version = firmwareVersion()});
    _environment.mainQueue.async([self = sharedSelf<TBUSBPrinterZUL>()] { self->setInFirmwareUpdate(false); });
    updatePrinterStatus();
}

// ---- helpers of every half ------------------------------------------------------------------------------------------

bool TBUSBPrinterZUL::waitForPrinterStatusCode(const std::string& code) {
    const int generation = _waitGeneration;
    for (;;) {
        if (openInterface() == kIOReturnSuccess && statusEquals(code)) return true;
        if (isReleased() || _waitGeneration != generation) return false;
        _environment.clock.sleepFor(kStatusPollPause);
    }
}

// The shown texts are compared: two codes that read the same are the same to the operator. No answer is not equal.
bool TBUSBPrinterZUL::statusEquals(const std::string& code) {
    bool equal = false;
    // The loop asks again by itself.
    askForStatus(IfMissing::dropLateReplies, [&equal, &code](const Text& rawStatus) { // inline, on the command queue
        equal = stringForVKStatusString(rawStatus) == stringForVKStatusString(code);
    });
    return equal;
}

void TBUSBPrinterZUL::setOverridePrinterStatus(const std::string& text) {
    logText("forcing printer status string to \"%s\"", text);
    _environment.mainQueue.async([self = sharedSelf<TBUSBPrinterZUL>(), text] { self->setPrinterStatus(text); });
}

void TBUSBPrinterZUL::setFirmwareUpdateStatus(int progress) {
    _environment.mainQueue.async([self = sharedSelf<TBUSBPrinterZUL>(), progress] {
        const std::string key = self->keyUSBdevice();
        self->_deviceInfoDict->set(HOLVEN_TBPrinterDeviceFirmwareStatus, std::int64_t{progress});
        logText("writing key:%s for dict:%s", key, self->_deviceInfoDict->description());
        self->_environment.deviceInfo.setInfo(self->_deviceInfoDict, key);
    });
}

} // namespace zul
