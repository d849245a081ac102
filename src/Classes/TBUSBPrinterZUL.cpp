// How a ZUL printer comes into being, and how one that comes back is recognised and carried on with: the probe is the
// part of an update that survives the printer's own restarts.
#include "Classes/TBUSBPrinterZUL.h"

#include "archive/ProductTable.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "protocol/CommandFrame.h"
#include "protocol/StatusTexts.h"

#include <utility>

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
    const Product* product = productWithID(productNumber());
    return product == nullptr ? Text{} : Text(product->picture);
}

void TBUSBPrinterZUL::initWithInterfaceInterface(InterfacePtr interfaceInterface, ServiceToken deviceObject) {
    TBUSBPrinter::initWithInterfaceInterface(std::move(interfaceInterface), deviceObject);
    if (!printerCommandQueue()) {
        assertOnCommandQueue();
        _exchange.beginArrivalOnMain();
    }
    for (int line = 0; line < 3; ++line) logText("%s", kSeparator);
    logText("initing device for key %s", keyUSBdevice());

    // An empty dictionary is one that was just made: this device was never seen before, and is not probed here.
    const DeviceInfoPtr saved = _environment.deviceInfo.infoForKey(keyUSBdevice());
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
    if (!isPendingUpdate()) {
        probeAtInit();
    } else if (isSecondOfDevice()) {
        logText("the update of %s continues through its other interface", descriptionUTF8());
    } else if (beginUpdate()) {
        probeAtInit();
    }
}

bool TBUSBPrinterZUL::isPendingUpdate() const {
    return _deviceInfoDict->integer(HOLVEN_TBPrinterDeviceFirmwareStatus).has_value();
}

void TBUSBPrinterZUL::probeAtInit() {
    openInterface([self = sharedSelf<TBUSBPrinterZUL>()](IOReturn code) {
        self->assertOnCommandQueue();
        const auto progress = self->_deviceInfoDict->integer(HOLVEN_TBPrinterDeviceFirmwareStatus);
        if (code != kIOReturnSuccess) {
            self->_isProbeOwed = code == kIOReturnExclusiveAccess && progress;
            return;
        }
        self->_exchange.setInRound(true);
        if (progress) {
            self->probeUpdatedPrinter(*progress);
        } else {
            self->probeKnownPrinter();
        }
        self->_exchange.setInRound(false);
    });
}

// Another program held the printer when it came back from a restart.
void TBUSBPrinterZUL::continueProbe() {
    if (std::exchange(_isProbeOwed, false)) probeAtInit();
}

// No update was running. The interface stays open on this path.
void TBUSBPrinterZUL::probeKnownPrinter() {
    getPrinterStatus([self = sharedSelf<TBUSBPrinterZUL>()](const Text& rawStatus) {
        self->assertOnCommandQueue();
        if (rawStatus != kLoaderStatus) {
            self->getDeviceCustomInfo();
        } else if (!self->isSecondOfDevice()) { // one question about one printer
            self->loaderFoundUnexpectedly();
        }
    });
}

void TBUSBPrinterZUL::loaderFoundUnexpectedly() {
    showCustomAlertWithTitle(_alertFactory.loaderFound([self = sharedSelf<TBUSBPrinterZUL>()](int answer) {
        if (answer == kAlertSecondButton) {
            logText("device is in firmware update mode ... uploading firmware");
            self->uploadFirmware();
            return;
        }
        self->emit(events::Declined{.question = AlertKind::loaderFound});
        self->showCustomAlertWithTitle(self->_alertFactory.loaderLeft());
    }));
}

void TBUSBPrinterZUL::probeUpdatedPrinter(std::int64_t progress) {
    _environment.mainQueue.async([self = sharedSelf<TBUSBPrinterZUL>()] { self->setInFirmwareUpdate(true); });
    const bool isLoaderExpected = progress == static_cast<std::int64_t>(UpdateProgress::waitingForLoader);
    VersionAnswer answer;
    // A loader does not answer this. Without a queue the main queue would wait for it.
    if (!isLoaderExpected || printerCommandQueue()) {
        answer = askVersionInline(isLoaderExpected ? IfMissing::isExpected : IfMissing::askAgain);
        storeVersionAnswer(answer);
        logText("printer firmware is currently reported as \"%s\"", textOrNull(answer.version));
    }

    if (isLoaderExpected) {
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

// A loader does not answer the question for its version: the version of the old firmware is then removed. An answer
// that is not valid text is ignored, and the earlier version stays.
void TBUSBPrinterZUL::storeVersionAnswer(const VersionAnswer& answer) {
    if (answer.version || !answer.isAnswered) storeFact(HOLVEN_TBPrinterFirmwareVersion, answer.version);
}

void TBUSBPrinterZUL::probeRestartedPrinter(const VersionAnswer& answer) {
    const Text& version = answer.version;
    logText("found a device rebooting after firmware update");
    if (version == kIntermediateVersion) {
        // It will restart once more by itself; the progress value stays for the next object.
        if (printerCommandQueue()) _environment.clock.sleepFor(kIntermediatePause);
        return;
    }
    const Text previous = _deviceInfoDict->string(HOLVEN_TBPrinterFirmwareVersionPrevious);
    if (previous && version && *previous != *version) {
        logText("firmware version changed from %s to %s", *previous, *version);
    } else {
        logText("firmware version unchanged at %s", textOrNull(version));
    }
    storeVersionAnswer(answer);
    if (printerCommandQueue()) {
        finishFirmwareUpdate();
    } else {
        // The tables begin with a wait until the printer is idle, and the main queue cannot wait. The progress value
        // stays: with its ID the printer gets its tables when it is attached again.
        logText("the color tables of the printer at %s are not written: it did not report its device ID",
                locationText());
    }
}

// ---- frames and replies ---------------------------------------------------------------------------------------------

TBUSBPrinter::Text TBUSBPrinterZUL::stringForCommandCode(std::uint32_t code) {
    const auto text = commandText(code);
    return text ? Text(*text) : std::nullopt;
}

void TBUSBPrinterZUL::sendPrinterCommand(std::uint32_t code, const Data* payload) {
    for (const int number : commandFrameErrors(code, payload == nullptr ? 0 : payload->size())) {
        reportInternalError(number);
    }
    if (!_channel.sendFrame(code, payload)) errorWithString(localized("Communication error"), 0);
}

std::optional<Data> TBUSBPrinterZUL::printerReply() {
    return _exchange.readReply();
}

void TBUSBPrinterZUL::reportInternalError(int number) {
    // The localised text keeps the key's one placeholder.
    std::string text = localized("Internal error L%d");
    if (const auto placeholder = text.find("%d"); placeholder != std::string::npos) {
        text.replace(placeholder, 2, std::to_string(number));
    }
    errorWithString(text, 0);
}

// Does nothing on purpose: failures are reported by missing replies and log lines.
void TBUSBPrinterZUL::errorWithString(const std::string& /*message*/, int /*code*/) {}

// ---- progress -------------------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::setProgress(UpdateProgress progress) {
    _deviceInfoDict->set(HOLVEN_TBPrinterDeviceFirmwareStatus, static_cast<std::int64_t>(progress));
    emit(events::ProgressStored{.value = static_cast<std::int64_t>(progress)});
}

void TBUSBPrinterZUL::clearProgress() {
    _deviceInfoDict->remove(HOLVEN_TBPrinterDeviceFirmwareStatus);
    emit(events::ProgressStored{});
}

} // namespace zul
