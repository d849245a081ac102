// The texts and buttons of every alert that the engine shows. No alert is shown here. Any thread; called by the printer
// and its update where the need for an alert arises.
#include "Classes/AlertFactory.h"

#include "Classes/TBUSBPrinterZUL.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/LocalizedFormat.h"

#include <utility>

namespace zul {

namespace {

constexpr int kAgreeBoxWidth = 72;
constexpr int kAgreeBoxHeight = 18;
constexpr const char* kCorruptionTitle =
    operatorText("-- File corruption --\n\nThere is a problem with the firmware files.");
constexpr const char* kContactSupport = operatorText("Contact customer support.");

const Bundle& bundleOf(const TBUSBPrinterZUL& printer) {
    return printer.environment().mainBundle;
}

} // namespace

std::string AlertFactory::localized(const char* key) const {
    return bundleOf(_printer).localizedString(key);
}

AlertDescription AlertFactory::completed(AlertDescription alert) const {
    if (alert.messageText.empty()) alert.messageText = localized("Alert");
    if (alert.buttons.empty()) alert.buttons = {localized("OK")};
    if (alert.buttons.size() == 1) alert.escapeButton = 0;
    alert.iconName = _printer.image().value_or("");
    alert.printerKey = _printer.keyUSBdevice();
    alert.attachment = _printer.creationToken();
    alert.printerName = displayNameOf(_printer);
    return alert;
}

AlertDescription AlertFactory::plain(const OptionalText& title, const OptionalText& message,
                                     const std::optional<std::vector<std::string>>& buttons,
                                     Completion completion) const {
    return {.kind = AlertKind::other,
            .messageText = title ? *title : localized("Alert"),
            .informativeText = message.value_or(""),
            .buttons = buttons.value_or(std::vector<std::string>{localized("OK")}),
            .completion = std::move(completion)};
}

// ---- the two common forms -------------------------------------------------------------------------------------------

AlertDescription AlertFactory::notice(AlertKind kind, std::string title, std::string message, std::string button,
                                      Completion completion) const {
    return {.kind = kind,
            .messageText = std::move(title),
            .informativeText = std::move(message),
            .buttons = {std::move(button)},
            .completion = std::move(completion)};
}

AlertDescription AlertFactory::retry(AlertKind kind, std::string title, std::string message,
                                     Completion completion) const {
    constexpr std::size_t kCancel = 1;
    return {.kind = kind,
            .messageText = std::move(title),
            .informativeText = std::move(message),
            .buttons = {localized("Proceed"), localized("Cancel")},
            .harmlessButton = kCancel,
            .escapeButton = kCancel,
            .completion = std::move(completion)};
}

// ---- before an update -----------------------------------------------------------------------------------------------

AlertDescription AlertFactory::agreement(const std::string& warning,
                                         std::function<void(CheckBox& sender)> whenTicked) const {
    const auto agree = std::make_shared<CheckBox>();
    agree->width = kAgreeBoxWidth;
    agree->height = kAgreeBoxHeight;
    agree->title = localized("I Agree");
    agree->action = std::move(whenTicked);
    return {.kind = AlertKind::agreement,
            .messageText = localized("Attention:"),
            .informativeText = warning,
            .buttons = {localized("Quit"), localized("Continue")},
            .style = AlertStyle::critical,
            .accessory = agree};
}

std::string AlertFactory::warningForRZ7(bool hasOldMedia) const {
    const char* extra = operatorText(" Please use up all RZ7 media before using this update tool.");
    const Bundle& bundle = bundleOf(_printer);
    // The program's own version, which this printer's owners know their update by; not the firmware file's.
    return localizedFormat(bundle,
                           "This update tool is for the ZUL RZ7 printer. It will upgrade the printer to %@.\n\nOnce "
                           "updated, the RZ7 printer will REQUIRE the use of RZ7HS media packs.%s This process cannot "
                           "be undone.",
                           textOrNull(bundle.objectForInfoDictionaryKey("CFBundleShortVersionString")),
                           hasOldMedia ? localized(extra) : std::string());
}

std::string AlertFactory::warning(const OptionalText& offeredVersion) const {
    return localizedFormat(bundleOf(_printer),
                           "This update tool will upgrade the printer firmware to version %@. This process cannot be "
                           "undone",
                           textOrNull(offeredVersion));
}

AlertDescription AlertFactory::corruptionWithQuit(Completion completion) const {
    return notice(AlertKind::corruption, localized(kCorruptionTitle), localized(kContactSupport), localized("Quit"),
                  std::move(completion));
}

AlertDescription AlertFactory::corruption() const {
    return notice(AlertKind::corruption, localized(kCorruptionTitle), localized(kContactSupport), localized("OK"));
}

AlertDescription AlertFactory::notNeeded(double installedVersion) const {
    return notice(
        AlertKind::notNeeded, localized("Firmware update not needed"),
        localizedFormat(bundleOf(_printer), "This printer has firmware version %.2f installed.", installedVersion),
        localized("OK"));
}

AlertDescription AlertFactory::busy(Completion completion) const {
    return retry(
        AlertKind::busy, localized("Printer Busy"),
        localized("Another application is using the printer. Please proceed when the printer becomes available."),
        std::move(completion));
}

AlertDescription AlertFactory::printerError(Completion completion) const {
    return retry(AlertKind::printerError, localized("Printer Error"),
                 localized("The printer is not responding properly. Please power-cycle the printer and try again."),
                 std::move(completion));
}

AlertDescription AlertFactory::notReady(const std::string& status, Completion completion) const {
    return retry(AlertKind::notReady, localized("Printer Not Ready"),
                 localizedFormat(bundleOf(_printer), "Please correct the following issue: %@", status),
                 std::move(completion));
}

AlertDescription AlertFactory::confirmation(const OptionalText& offeredVersion, Completion completion) const {
    const std::string update = localizedFormat(bundleOf(_printer), "Update Firmware to %@", textOrNull(offeredVersion));
    constexpr std::size_t kCancel = 0; // first: Return must not start what cannot be undone
    return {.kind = AlertKind::confirmation,
            .messageText = localized("-- Warning --\n\nAre you certain you want to update the firmware?"),
            .informativeText = localized(
                "The printer may be permanently damaged if it is unplugged or loses power during the update process."),
            .buttons = {localized("Cancel"), update},
            .harmlessButton = kCancel,
            .escapeButton = kCancel,
            .completion = std::move(completion)};
}

// ---- during and after an update -------------------------------------------------------------------------------------

AlertDescription AlertFactory::loaderFound(Completion completion) const {
    return {.kind = AlertKind::loaderFound,
            .messageText = localized("Attention:"),
            .informativeText = localized(
                "A printer was unexpectedly found in firmware update mode. Would you like to update the firmware? "),
            .buttons = {localized("Ignore"), localized("Update Firmware")},
            .style = AlertStyle::critical,
            .completion = std::move(completion)};
}

AlertDescription AlertFactory::loaderLeft() const {
    return notice(AlertKind::loaderLeft, localized("Please power-cycle this printer"),
                  localized("Contact customer support if power-cycling does not resolve the issue."), localized("OK"));
}

AlertDescription AlertFactory::damagedFile() const {
    return notice(AlertKind::damagedFile, localized("There was a problem with the firmware file!"),
                  localized("This application may be damaged. Please download a new copy."), localized("OK"));
}

AlertDescription AlertFactory::success(const OptionalText& previousVersion, const OptionalText& version) const {
    return notice(AlertKind::success, localized("Firmware update was successful!"),
                  localizedFormat(bundleOf(_printer), "Firmware version updated from %@ to %@",
                                  textOrNull(previousVersion), textOrNull(version)),
                  localized("Finish"));
}

AlertDescription AlertFactory::problem(const OptionalText& previousVersion, const OptionalText& version) const {
    return notice(AlertKind::problem, localized("There was a problem with the firmware update!"),
                  localizedFormat(bundleOf(_printer), "Previous firmware version: %@ current version: %@",
                                  textOrNull(previousVersion), textOrNull(version)),
                  localized("OK"));
}

// ---- the USB serial-number setting ----------------------------------------------------------------------------------

AlertDescription AlertFactory::powerCycle(std::shared_ptr<CheckBox> suppression, Completion completion) const {
    return {.kind = AlertKind::powerCycle,
            .messageText = localized("Please power-cycle the selected printer now to complete the process!"),
            .completion = std::move(completion),
            .suppression = std::move(suppression),
            .isModal = true};
}

AlertDescription AlertFactory::printerBusy() const {
    return {.kind = AlertKind::printerBusy,
            .messageText = localized("The Selected Printer is Unavailable. (Busy)"),
            .isModal = true};
}

} // namespace zul
