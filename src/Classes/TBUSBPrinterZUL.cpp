// How a ZUL printer comes into being and is probed, its frames and replies, and its short operations on the archive.
// The controller makes the object on the main queue; the probe, frames and replies are of the command queue.
#include "Classes/TBUSBPrinterZUL.h"

#include "archive/FirmwareArchive.h"
#include "archive/KeyedDigest.h"
#include "archive/ProductTable.h"
#include "archive/SRecord.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "protocol/CommandFrame.h"
#include "protocol/StatusTexts.h"

#include <utility>

namespace zul {

namespace {

const std::string kSeparator(64, '+');

} // namespace

std::set<std::uint16_t> TBUSBPrinterZUL::supportedVendorIDs() {
    return productVendorIDs();
}
std::set<std::uint16_t> TBUSBPrinterZUL::supportedProductIDs() {
    return acceptedProductIDs();
}

OptionalText TBUSBPrinterZUL::image() const {
    const Product* product = productWithID(productNumber());
    return product == nullptr ? OptionalText{} : OptionalText(product->picture);
}

void TBUSBPrinterZUL::initWithInterfaceInterface(InterfacePtr interfaceInterface, ServiceToken deviceObject) {
    assertOnMainQueue();
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
        assertOnMainQueue();
        if (!self->manufacturer()) {
            if (const OptionalText known = saved->string(HOLVEN_TBPrinterManufacturer)) self->setManufacturer(known);
        }
        if (!self->model()) {
            if (const OptionalText known = saved->string(HOLVEN_TBPrinterModel)) self->setModel(known);
        }
    });
    if (!_update.progress()) {
        probeAtInit();
    } else if (isSecondOfDevice()) {
        logText("the update of %s continues through its other interface", descriptionUTF8());
    } else if (_update.claim()) {
        probeAtInit();
    }
}

void TBUSBPrinterZUL::probeAtInit() {
    openInterface([self = sharedSelf<TBUSBPrinterZUL>()](IOReturn code) {
        self->assertOnCommandQueue();
        const auto progress = self->_update.progress();
        if (code != kIOReturnSuccess) {
            self->_isProbeOwed = code == kIOReturnExclusiveAccess && progress;
            return;
        }
        self->_exchange.setInRound(true);
        if (progress) {
            self->_update.resume(*progress);
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
    getPrinterStatus([self = sharedSelf<TBUSBPrinterZUL>()](const OptionalText& rawStatus) {
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

// ---- frames and replies ---------------------------------------------------------------------------------------------

OptionalText TBUSBPrinterZUL::stringForCommandCode(std::uint32_t code) {
    const auto text = commandText(code);
    return text ? OptionalText(*text) : std::nullopt;
}

void TBUSBPrinterZUL::sendPrinterCommand(std::uint32_t code, const Data* payload) {
    static_cast<void>(_channel.sendFrame(code, payload)); // reported there
}

std::optional<Data> TBUSBPrinterZUL::printerReply() {
    return _channel.readReply().body;
}

void TBUSBPrinterZUL::reportCommunicationError() {
    errorWithString(localized("Communication error"), 0);
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

// ---- firmware archive -----------------------------------------------------------------------------------------------

std::string TBUSBPrinterZUL::asciiHexForData(const Data& data) {
    return hexText(data);
}

OptionalText TBUSBPrinterZUL::verifyBlob(const Data& data) const {
    if (data.empty()) return std::nullopt;
    logText("keyed on %s", className());
    return keyedDigest(className(), data);
}

OptionalText TBUSBPrinterZUL::digestOfBlob(const Data& data) {
    return data.empty() ? std::nullopt : OptionalText(keyedDigest(kProductClassName, data));
}

std::optional<Data> TBUSBPrinterZUL::firmwareBlobForKey(const std::string& key) {
    const OptionalText value = _deviceInfoDict->string(key);
    return value ? std::optional(paddedData(dataFromText(*value))) : std::nullopt;
}

std::optional<FirmwareOffer> TBUSBPrinterZUL::firmwareOffer() const {
    return _files.offer();
}

std::vector<ArchiveProblem> TBUSBPrinterZUL::archiveProblems() const {
    return _files.problems();
}

} // namespace zul
