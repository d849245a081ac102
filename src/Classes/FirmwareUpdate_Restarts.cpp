// How an update continues with the object that a printer gets after a restart. Command queue; called by the probe of a
// new object whose device information has a progress value.
#include "Classes/FirmwareUpdate.h"

#include "Classes/TBUSBPrinterZUL.h"
#include "platform/foundation/Format.h"
#include "protocol/StatusTexts.h"

namespace zul {

namespace {

// A version that the VK-RZ7 shows between two of its own restarts; the update is not over yet.
constexpr const char* kIntermediateVersion = "RZ7_ALLFWU_2.05";
constexpr auto kIntermediatePause = std::chrono::seconds(1);

} // namespace

std::optional<std::int64_t> FirmwareUpdate::progress() const {
    return _printer.deviceInfoDict()->integer(HOLVEN_TBPrinterDeviceFirmwareStatus);
}

void FirmwareUpdate::resume(std::int64_t progress) {
    _printer.assertOnCommandQueue();
    setInUpdateOnMain(true);
    const bool isLoaderExpected = progress == static_cast<std::int64_t>(UpdateProgress::waitingForLoader);
    VersionAnswer answer;
    // A loader does not answer this. Without a queue the main queue would wait for it.
    if (!isLoaderExpected || _printer.printerCommandQueue()) {
        answer = _printer.askVersionInline(isLoaderExpected ? IfMissing::isExpected : IfMissing::askAgain);
        storeVersion(answer);
        logText("printer firmware is currently reported as \"%s\"", textOrNull(answer.version));
    }

    if (isLoaderExpected) {
        resumeAtLoader();
    } else if (progress == static_cast<std::int64_t>(UpdateProgress::waitingForFirmware)) {
        resumeAtFirmware(answer);
    } else {
        logText("found a device finished with firmware update");
        setInUpdateOnMain(false);
        clearProgress();
        _printer.getDeviceCustomInfo();
    }
    _printer.closeInterface(nullptr);
}

void FirmwareUpdate::resumeAtLoader() {
    logText("found a device waiting for firmware update");
    _printer.getPrinterStatus([self = shared()](const OptionalText& rawStatus) {
        if (rawStatus == kLoaderStatus && self->isAnotherPrinter()) {
            self->askAboutAnotherPrinter();
        } else if (rawStatus == kLoaderStatus) {
            logText("device is in firmware update mode ... uploading firmware");
            self->uploadImage();
        } else {
            logText("Bad Status (%s) while waiting for firmware update", textOrNull(rawStatus));
        }
    });
}

// The printer that was ordered into its loader is recognised by its device ID, where both IDs have a serial number.
bool FirmwareUpdate::isAnotherPrinter() const {
    const OptionalText updated = _printer.fact(kUpdatedSerialNumber);
    const OptionalText& own = _printer.idSerialNumber();
    return updated && own && !updated->empty() && !own->empty() && *updated != *own;
}

// The engine goes by the place; the image is for the printer whose update the operator has confirmed. Another one, or a
// loader that reports another number than its firmware did, gets it only after a question.
void FirmwareUpdate::askAboutAnotherPrinter() {
    const OptionalText& own = _printer.idSerialNumber();
    logText("the loader at %s has the serial number %s, and the update was begun with %s", _printer.locationText(),
            textOrNull(own), textOrNull(_printer.fact(kUpdatedSerialNumber)));
    setInUpdateOnMain(false);
    _printer.emit(events::AnotherPrinterFound{.serialNumber = own.value_or("")});
    _printer.loaderFoundUnexpectedly();
}

// A loader does not answer the question for its version: the version of the old firmware is then removed. An answer
// that is not valid text is ignored, and the earlier version stays.
void FirmwareUpdate::storeVersion(const VersionAnswer& answer) {
    if (answer.version || !answer.isAnswered) _printer.storeFact(HOLVEN_TBPrinterFirmwareVersion, answer.version);
}

void FirmwareUpdate::resumeAtFirmware(const VersionAnswer& answer) {
    const OptionalText& version = answer.version;
    logText("found a device rebooting after firmware update");
    if (version == kIntermediateVersion) {
        // It will restart once more by itself; the progress value stays for the next object.
        if (_printer.printerCommandQueue()) _printer.environment().clock.sleepFor(kIntermediatePause);
        return;
    }
    const OptionalText previous = _printer.fact(HOLVEN_TBPrinterFirmwareVersionPrevious);
    if (previous && version && *previous != *version) {
        logText("firmware version changed from %s to %s", *previous, *version);
    } else {
        logText("firmware version unchanged at %s", textOrNull(version));
    }
    storeVersion(answer);
    if (_printer.printerCommandQueue()) {
        finish();
    } else {
        // The tables begin with a wait until the printer is idle, and the main queue cannot wait. The progress value
        // stays: with its ID the printer gets its tables when it is attached again.
        logText("the color tables of the printer at %s are not written: it did not report its device ID",
                _printer.locationText());
    }
}

} // namespace zul
