// The questions and reports to the operator. An alert is described where the need arises, on any thread; it is shown on
// the main queue, and no thread waits for the answer.
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/ProductTable.h"

#include "platform/dispatch/Queue.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/foundation/UserDefaults.h"

namespace zul {

namespace {

constexpr const char* kShowCustomAlert = "-[TBUSBPrinterZUL showCustomAlertWithTitle:message:buttonTitles:"
                                         "accessoryView:alertStyle:customLayout:completion:]";
constexpr const char* kAgreedKey = "customerDidAgree";
constexpr double kFirstRZ7VersionForAnyMedia = 2.04;
constexpr int kAgreeBoxWidth = 72;
constexpr int kAgreeBoxHeight = 18;
constexpr std::size_t kContinueButton = 1;

} // namespace

std::string TBUSBPrinterZUL::localized(const char* key) const {
    return _environment.mainBundle.localizedString(key);
}

// ---- the alert routine ----------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::showAlertWithTitle(const Text& title, const Text& message,
                                         const std::optional<std::vector<std::string>>& buttonTitles,
                                         std::function<void(int answer)> completion) {
    showAlert(AlertKind::other, title ? *title : localized("Alert"), message.value_or(""),
              buttonTitles.value_or(std::vector<std::string>{localized("OK")}), std::move(completion));
}

void TBUSBPrinterZUL::showAlert(AlertKind kind, const std::string& title, const std::string& message,
                                std::vector<std::string> buttonTitles, std::function<void(int answer)> completion) {
    showCustomAlertWithTitle({.kind = kind,
                              .messageText = title,
                              .informativeText = message,
                              .buttons = std::move(buttonTitles),
                              .completion = std::move(completion)});
}

void TBUSBPrinterZUL::showCustomAlertWithTitle(AlertDescription alert) {
    logText("%s", kShowCustomAlert);
    if (alert.messageText.empty() && alert.informativeText.empty()) return;
    postAlert(completed(std::move(alert)));
}

void TBUSBPrinterZUL::old_showAlertWithTitle(const Text& title, const Text& message,
                                             const std::optional<std::vector<std::string>>& buttonTitles,
                                             std::function<void(int answer)> completion) {
    const std::string shownTitle = title ? *title : localized("Alert");
    if (shownTitle.empty() && message.value_or("").empty()) return;
    _environment.mainQueue.async([self = sharedSelf<TBUSBPrinterZUL>(), shownTitle, message, buttonTitles, completion] {
        self->_environment.alerts.beginAlert(
            self->completed({.messageText = shownTitle,
                             .informativeText = message.value_or(""),
                             .buttons = buttonTitles.value_or(std::vector<std::string>{}),
                             .completion = completion}));
    });
}

// What every alert of this printer has, and what is left out of most.
AlertDescription TBUSBPrinterZUL::completed(AlertDescription alert) const {
    if (alert.messageText.empty()) alert.messageText = localized("Alert");
    if (alert.buttons.empty()) alert.buttons = {localized("OK")};
    if (alert.buttons.size() == 1) alert.escapeButton = 0;
    alert.iconName = image().value_or("");
    alert.printerKey = keyUSBdevice();
    alert.attachment = creationToken();
    alert.printerName = nameOf(*this);
    return alert;
}

void TBUSBPrinterZUL::postAlert(AlertDescription alert) {
    _environment.mainQueue.async([self = sharedSelf<TBUSBPrinterZUL>(), alert = std::move(alert)] {
        self->_environment.alerts.beginAlert(alert);
    });
}

// ---- agreement ------------------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::ShowRZ7Warning() {
    const auto self = sharedSelf<TBUSBPrinterZUL>();
    const auto agree = std::make_shared<CheckBox>();
    agree->width = kAgreeBoxWidth;
    agree->height = kAgreeBoxHeight;
    agree->title = localized("I Agree");
    agree->action = [self](CheckBox& sender) { self->setToggleAgreed(&sender); };
    _customerDidAgree = false;

    showCustomAlertWithTitle(
        {.kind = AlertKind::agreement,
         .messageText = localized("Attention:"),
         .informativeText = productNumber() == kProductVKRZ7 ? RZ7UpdateWarningText() : genericUpdateWarningText(),
         .buttons = {localized("Quit"), localized("Continue")},
         .style = AlertStyle::critical,
         .accessory = agree,
         .layout =
             [self](AlertLayout& alert) {
                 self->setCustomerDidAgree(false); // it may have waited while an earlier one was ticked
                 if (alert.buttonCount() <= kContinueButton) return;
                 alert.bindButtonEnabled(kContinueButton, self, kAgreedKey,
                                         [self] { return self->customerDidAgree(); });
             },
         .completion =
             [self, agree](int answer) {
                 if (answer == kAlertSecondButton && agree->state == 1) {
                     self->proceedWithUpdateWhenReady();
                     return;
                 }
                 self->emit(events::Declined{.question = AlertKind::agreement});
                 if (answer == kAlertFirstButton) self->_environment.application.terminate();
             }});
}

void TBUSBPrinterZUL::setToggleAgreed(const CheckBox* sender) {
    if (sender != nullptr) setCustomerDidAgree(sender->state == 1);
}

void TBUSBPrinterZUL::setCustomerDidAgree(bool agreed) {
    const KeyChange change(*this, kAgreedKey);
    _customerDidAgree = agreed;
}

std::string TBUSBPrinterZUL::RZ7UpdateWarningText() const {
    const char* extra = operatorText(" Please use up all RZ7 media before using this update tool.");
    // The program's own version, which this printer's owners know their update by; not the firmware file's.
    return localizedFormat(_environment.mainBundle,
                           "This update tool is for the ZUL RZ7 printer. It will upgrade the printer to %@.\n\nOnce "
                           "updated, the RZ7 printer will REQUIRE the use of RZ7HS media packs.%s This process cannot "
                           "be undone.",
                           textOrNull(_environment.mainBundle.objectForInfoDictionaryKey("CFBundleShortVersionString")),
                           installedFirmwareVersion() < kFirstRZ7VersionForAnyMedia ? localized(extra) : std::string());
}

std::string TBUSBPrinterZUL::genericUpdateWarningText() {
    return localizedFormat(_environment.mainBundle,
                           "This update tool will upgrade the printer firmware to version %@. This process cannot be "
                           "undone",
                           textOrNull(newFirmwareVersion()));
}

// ---- modal alerts ---------------------------------------------------------------------------------------------------

void TBUSBPrinterZUL::showPowerCycleAlert() {
    const bool isSuppressed = false; // the setting is kept, but never keeps this alert away
    if (isSuppressed) return;
    if (usbISerial() == serialNumberUSB().has_value()) return; // the device already shows what was set
    const auto suppression = std::make_shared<CheckBox>();
    postModalAlert(AlertKind::powerCycle,
                   operatorText("Please power-cycle the selected printer now to complete the process!"), suppression,
                   [self = sharedSelf<TBUSBPrinterZUL>(), suppression](int /*answer*/) {
                       if (suppression->state != 1) return;
                       self->_environment.userDefaults.setBool(HOLVEN_ZUL_USB_SuppressPowerCycleAlert, true);
                   });
}

void TBUSBPrinterZUL::showPrinterBusyAlert() {
    postModalAlert(AlertKind::printerBusy, operatorText("The Selected Printer is Unavailable. (Busy)"), nullptr, {});
}

void TBUSBPrinterZUL::postModalAlert(AlertKind kind, const char* messageKey, std::shared_ptr<CheckBox> suppression,
                                     std::function<void(int answer)> completion) {
    AlertDescription alert =
        completed({.kind = kind, .messageText = localized(messageKey), .completion = std::move(completion)});
    alert.suppression = std::move(suppression);
    alert.isModal = true;
    postAlert(std::move(alert));
}

} // namespace zul
