// How a ZUL printer comes into being, and how one that comes back is recognised and carried on with: the probe is the
// part of an update that survives the printer's own restarts.
#include "Classes/TBUSBPrinterZUL.h"

#include "Classes/StatusTexts.h"
#include "archive/ProductTable.h"
#include "platform/foundation/Format.h"

namespace zul {

namespace {

// A version that the VK-RZ7 shows between two of its own restarts; the update is not over yet.
constexpr const char* kIntermediateVersion = "RZ7_ALLFWU_2.05";
constexpr auto kIntermediatePause = std::chrono::seconds(1);

const std::string kSeparator(64, '+');

} // namespace

std::set<std::uint16_t> TBUSBPrinterZUL::supportedVendorIDs() {
    return productVendorIDs();
}
std::set<std::uint16_t> TBUSBPrinterZUL::supportedProductIDs() {
    return acceptedProductIDs();
}

TBUSBPrinter::Text TBUSBPrinterZUL::image() const {
    const Product* product = productWithID(_idProduct);
    return product == nullptr ? Text{} : Text(product->picture);
}

void TBUSBPrinterZUL::initWithInterfaceInterface(InterfacePtr interfaceInterface, ServiceToken deviceObject) {
    TBUSBPrinter::initWithInterfaceInterface(std::move(interfaceInterface), deviceObject);
    for (int line = 0; line < 3; ++line) logText("%s", kSeparator);
    logText("initing device for key %s", keyUSBdevice());

    // An empty dictionary is one that was just made: this device was never seen before, and is not probed here.
    const DeviceInfoPtr saved = deviceInfoForKey(keyUSBdevice());
    if (saved->count() == 0) return;
    logText("infoDict here is %s", saved->description());
    _deviceInfoDict->addEntries(*saved);
    _environment.mainQueue.async([self = sharedSelf<TBUSBPrinterZUL>(), saved] {
        if (!self->manufacturer()) {
            if (const Text known = saved->string(HOLVEN_TBPrinterManufacturer)) self->setManufacturer(known);
        }
        if (!self->model()) {
            if (const Text known = saved->string(HOLVEN_TBPrinterModel)) self->setModel(known);
        }
    });
    probeAtInit();
}

void TBUSBPrinterZUL::probeAtInit() {
    // Without a queue everything would run here, on the main queue. What is saved stays, and a replug carries on.
    if (!printerCommandQueue()) return;
    openInterface([self = sharedSelf<TBUSBPrinterZUL>()](IOReturn code) {
        self->assertOnCommandQueue();
        if (code != kIOReturnSuccess) return;
        const auto progress = self->_deviceInfoDict->integer(HOLVEN_TBPrinterDeviceFirmwareStatus);
        if (progress) {
            self->probeUpdatedPrinter(*progress);
        } else {
            self->probeKnownPrinter();
        }
    });
}

// No update was running. The interface stays open on this path.
void TBUSBPrinterZUL::probeKnownPrinter() {
    getPrinterStatus([self = sharedSelf<TBUSBPrinterZUL>()](const Text& rawStatus) {
        self->assertOnCommandQueue();
        if (rawStatus == kLoaderStatus) {
            self->loaderFoundUnexpectedly();
        } else {
            self->getDeviceCustomInfo();
        }
    });
}

void TBUSBPrinterZUL::loaderFoundUnexpectedly() {
    showCustomAlertWithTitle(
        {.kind = AlertKind::loaderFound,
         .title = localized("Attention:"),
         .message = localized(
             "A printer was unexpectedly found in firmware update mode. Would you like to update the firmware? "),
         .buttonTitles = {localized("Ignore"), localized("Update Firmware")},
         .accessoryView = nullptr,
         .alertStyle = AlertStyle::critical,
         .customLayout = {},
         .completion = [self = sharedSelf<TBUSBPrinterZUL>()](int answer) {
             if (answer == kAlertSecondButton) {
                 logText("device is in firmware update mode ... uploading firmware");
                 self->uploadFirmware();
                 return;
             }
             self->emit(events::Declined{.question = AlertKind::loaderFound});
             self->showAlert(AlertKind::loaderLeft, self->localized("Please power-cycle this printer"),
                             self->localized("Contact customer support if power-cycling does not resolve the issue."),
                             {self->localized("OK")});
         }});
}

void TBUSBPrinterZUL::probeUpdatedPrinter(std::int64_t progress) {
    _environment.mainQueue.async([self = sharedSelf<TBUSBPrinterZUL>()] { self->setInFirmwareUpdate(true); });
    const VersionAnswer answer = askVersionInline();
    storeVersionAnswer(answer);
    logText("printer firmware is currently reported as \"%s\"", textOrNull(answer.version));

    if (progress == static_cast<std::int64_t>(UpdateProgress::waitingForLoader)) {
        probeWaitingForLoader();
    } else if (progress == static_cast<std::int64_t>(UpdateProgress::waitingForFirmware)) {
        probeRestartedPrinter(answer);
    } else {
        logText("found a device finished with firmware update");
        _environment.mainQueue.async([self = sharedSelf<TBUSBPrinterZUL>()] { self->setInFirmwareUpdate(false); });
        clearProgress();
        getDeviceCustomInfo();
    }
    closeInterface(nullptr);
}

void TBUSBPrinterZUL::probeWaitingForLoader() {
    logText("found a device waiting for firmware update");
    getPrinterStatus([self = sharedSelf<TBUSBPrinterZUL>()](const Text& rawStatus) {
        if (rawStatus == kLoaderStatus) {
            logText("device is in firmware update mode ... uploading firmware");
            self->uploadFirmware();
        } else {
            logText("Bad Status (%s) while waiting for firmware update", textOrNull(rawStatus));
        }
    });
}

// A loader does not tell a version: storing nothing removes what the old firmware had told. What is answered and is no
// text tells nothing, so the earlier version stays.
void TBUSBPrinterZUL::storeVersionAnswer(const VersionAnswer& answer) {
    if (answer.version || !answer.isAnswered) storeFact(HOLVEN_TBPrinterFirmwareVersion, answer.version);
}

void TBUSBPrinterZUL::probeRestartedPrinter(const VersionAnswer& answer) {
    const Text& version = answer.version;
    logText("found a device rebooting after firmware update");
    if (version == kIntermediateVersion) {
        // It will restart once more by itself; the progress value stays for the next object.
        _environment.clock.sleepFor(kIntermediatePause);
        return;
    }
    const Text previous = _deviceInfoDict->string(HOLVEN_TBPrinterFirmwareVersionPrevious);
    if (previous && version && *previous != *version) {
        logText("firmware version changed from %s to %s", *previous, *version);
    } else {
        logText("firmware version unchanged at %s", textOrNull(version));
    }
    storeVersionAnswer(answer);
    finishFirmwareUpdate();
}

void TBUSBPrinterZUL::setProgress(UpdateProgress progress) {
    _deviceInfoDict->set(HOLVEN_TBPrinterDeviceFirmwareStatus, static_cast<std::int64_t>(progress));
    emit(events::ProgressStored{.value = static_cast<std::int64_t>(progress)});
}

void TBUSBPrinterZUL::clearProgress() {
    _deviceInfoDict->remove(HOLVEN_TBPrinterDeviceFirmwareStatus);
    emit(events::ProgressStored{});
}

} // namespace zul
