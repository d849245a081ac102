// Whether the printer reports a USB serial number: reading and writing that setting, and what follows a change. Called
// from the menus and by the probe; what talks to the printer runs on its command queue.
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/ProductTable.h"
#include "protocol/CommandFrame.h"

#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"

#include <cstdlib>

namespace zul {

namespace {

constexpr double kFirstRZ7VersionWithSetting = 2.04; // inclusive

// The print service names queues after the USB serial number; queues made without one must go when it changes.
constexpr const char* kDeleteQueuesCommand =
    "for q in $(lpstat -v|awk '/QP-VK26[?]/ {print $3}');do lpadmin -x ${q%:};done";

// Without a print service there is nothing to delete, and no message about it.
int runShellQuietly(const std::string& commandLine) {
    return std::system(("{ " + commandLine + "; } >/dev/null 2>&1").c_str());
}

} // namespace

bool TBUSBPrinterZUL::hasISerialSupport() const {
    switch (productNumber()) {
    case kProductVK26:
    case kProductVK28:
        return true;
    case kProductVKRZ7:
        return installedFirmwareVersion() >= kFirstRZ7VersionWithSetting;
    default:
        return false;
    }
}

bool TBUSBPrinterZUL::usbISerial() const {
    return boolValue(fact(HOLVEN_ZUL_USB_ISerialisSet).value_or("0"));
}

std::string TBUSBPrinterZUL::usbISerialString() const {
    if (!hasISerialSupport()) return operatorText("Unavailable");
    return usbISerial() ? operatorText("Enabled") : operatorText("Disabled");
}

void TBUSBPrinterZUL::getUSB_ISerial() {
    if (!hasISerialSupport()) return;
    openInterface([self = sharedSelf<TBUSBPrinterZUL>()](IOReturn code) {
        if (code != kIOReturnSuccess) return;
        self->queueQuery({.command = kCommandGetISerial}, [self](const std::optional<Data>& reply) {
            self->assertOnCommandQueue();
            self->handleISerialReply(reply);
        });
        self->closeInterface(nullptr);
    });
}

void TBUSBPrinterZUL::handleISerialReply(const std::optional<Data>& reply) {
    if (!reply || reply->empty()) return;
    OptionalText value = stringFromNulTerminatedUTF8(*reply);
    if (!value) return;
    if (!value->empty()) value = std::to_string(integerValue(*value));
    storeFact(HOLVEN_ZUL_USB_ISerialisSet, value, "usbISerialString");
    setUsbISerial(boolValue(*value)); // stored before: a plain read never leads to a write
    logText("usbISerial value: %s", *value);
}

void TBUSBPrinterZUL::setUSB_ISerial(bool enabled) {
    if (!hasISerialSupport()) return;
    openInterface([self = sharedSelf<TBUSBPrinterZUL>(), enabled](IOReturn code) {
        self->assertOnCommandQueue();
        if (code != kIOReturnSuccess) return;
        const Data payload = {'0', static_cast<std::uint8_t>(enabled ? '1' : '0'), '\r', 0};
        self->sendPrinterCommand(kCommandSetISerial, &payload);
        self->getUSB_ISerial();
    });
}

void TBUSBPrinterZUL::setUsbISerial(bool enabled) {
    if (enabled != usbISerial()) setEnabledUSBSerial(enabled);
}

void TBUSBPrinterZUL::setEnabledUSBSerial(bool enabled) {
    openInterface([self = sharedSelf<TBUSBPrinterZUL>(), enabled](IOReturn code) {
        if (code != kIOReturnSuccess) {
            self->showPrinterBusyAlert();
            return;
        }
        self->setUSB_ISerial(enabled);
        self->closeInterface([self](IOReturn /*code*/) {
            self->showPowerCycleAlert();
            self->deleteExistingPrinterQueues();
        });
    });
}

void TBUSBPrinterZUL::deleteExistingPrinterQueues() {
    static_cast<void>(_environment.shell ? _environment.shell(kDeleteQueuesCommand)
                                         : runShellQuietly(kDeleteQueuesCommand));
}

} // namespace zul
