// Showing alerts. An alert is made on any thread; it is shown on the main queue, and no thread waits for the answer.
// Called by the printer, by its update and by the programs.
#include "Classes/TBUSBPrinterZUL.h"

#include "platform/dispatch/Queue.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/UserDefaults.h"

namespace zul {

namespace {

constexpr const char* kShowCustomAlert = "-[TBUSBPrinterZUL showCustomAlertWithTitle:message:buttonTitles:"
                                         "accessoryView:alertStyle:customLayout:completion:]";
constexpr double kFirstRZ7VersionForAnyMedia = 2.04;

} // namespace

std::string TBUSBPrinterZUL::localized(const char* key) const {
    return _environment.mainBundle.localizedString(key);
}

// ---- the alert routine ----------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::showAlertWithTitle(const OptionalText& title, const OptionalText& message,
                                         const std::optional<std::vector<std::string>>& buttonTitles,
                                         std::function<void(int answer)> completion) {
    showCustomAlertWithTitle(_alertFactory.plain(title, message, buttonTitles, std::move(completion)));
}

void TBUSBPrinterZUL::showCustomAlertWithTitle(AlertDescription alert) {
    logText("%s", kShowCustomAlert);
    if (alert.messageText.empty() && alert.informativeText.empty()) return;
    postAlert(std::move(alert));
}

void TBUSBPrinterZUL::old_showAlertWithTitle(const OptionalText& title, const OptionalText& message,
                                             const std::optional<std::vector<std::string>>& buttonTitles,
                                             std::function<void(int answer)> completion) {
    const AlertDescription alert = _alertFactory.plain(title, message, buttonTitles, std::move(completion));
    if (alert.messageText.empty() && alert.informativeText.empty()) return;
    _environment.mainQueue.async([self = sharedSelf<TBUSBPrinterZUL>(), alert] {
        assertOnMainQueue();
        self->_environment.alerts.beginAlert(self->_alertFactory.completed(alert));
    });
}

void TBUSBPrinterZUL::postAlert(AlertDescription alert) {
    _environment.mainQueue.async(
        [self = sharedSelf<TBUSBPrinterZUL>(), alert = _alertFactory.completed(std::move(alert))] {
            assertOnMainQueue();
            self->_environment.alerts.beginAlert(alert);
        });
}

// ---- agreement ------------------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::setToggleAgreed(const CheckBox* sender) {
    if (sender != nullptr) _update.setAgreed(sender->state == 1);
}

std::string TBUSBPrinterZUL::RZ7UpdateWarningText() const {
    return _alertFactory.warningForRZ7(installedFirmwareVersion() < kFirstRZ7VersionForAnyMedia);
}

std::string TBUSBPrinterZUL::genericUpdateWarningText() {
    return _alertFactory.warning(newFirmwareVersion());
}

// ---- modal alerts ---------------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::showPowerCycleAlert() {
    const bool isSuppressed = false; // the setting is kept, but never keeps this alert away
    if (isSuppressed) return;
    if (usbISerial() == serialNumberUSB().has_value()) return; // the device already shows what was set
    const auto suppression = std::make_shared<CheckBox>();
    postAlert(
        _alertFactory.powerCycle(suppression, [self = sharedSelf<TBUSBPrinterZUL>(), suppression](int /*answer*/) {
            if (suppression->state != 1) return;
            self->_environment.userDefaults.setBool(HOLVEN_ZUL_USB_SuppressPowerCycleAlert, true);
        }));
}

void TBUSBPrinterZUL::showPrinterBusyAlert() {
    postAlert(_alertFactory.printerBusy());
}

} // namespace zul
