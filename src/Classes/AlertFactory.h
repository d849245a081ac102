// Builds the alerts of one printer: their kinds, texts, buttons and which of these Escape presses. The printer shows
// them. Any thread: what it returns is plain data. Completions are called on the main queue with the answer; any of
// them may be empty.
#pragma once

#include "Classes/Outlets.h"
#include "platform/foundation/OptionalText.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zul {

class TBUSBPrinterZUL;

class AlertFactory {
  public:
    using Completion = std::function<void(int answer)>;

    /// The printer outlives the factory.
    explicit AlertFactory(const TBUSBPrinterZUL& printer) : _printer(printer) {}

    /// The alert with what every alert of this printer has: its name, its picture, its key and attachment, a title and
    /// at least one button; Escape presses the only button.
    AlertDescription completed(AlertDescription alert) const;
    /// Asks no question that this program knows. Without a title or buttons they are "Alert" and "OK".
    AlertDescription plain(const OptionalText& title, const OptionalText& message,
                           const std::optional<std::vector<std::string>>& buttons, Completion completion) const;

    // ---- before an update -----------------------------------------------------------------------------------------

    /// The warning before every update, with a check box "I Agree". Quit is the first button, Continue the second.
    AlertDescription agreement(const std::string& warning, std::function<void(CheckBox& sender)> whenTicked) const;
    /// The index of "Continue" in it.
    static constexpr std::size_t kContinueButton = 1;
    /// The warning of the model VK-RZ7, with the program's own version; hasOldMedia: media that it will refuse may be
    /// left.
    std::string warningForRZ7(bool hasOldMedia) const;
    /// The warning of all other models, with the version in the archive.
    std::string warning(const OptionalText& offeredVersion) const;
    /// The firmware files are damaged; the button is "Quit" or "OK".
    AlertDescription corruptionWithQuit(Completion completion) const;
    AlertDescription corruption() const;
    AlertDescription notNeeded(double installedVersion) const;
    /// The three that offer to try again: Proceed, and Cancel, which Escape presses.
    AlertDescription busy(Completion completion) const;
    AlertDescription printerError(Completion completion) const;
    AlertDescription notReady(const std::string& status, Completion completion) const;
    /// The last question. Cancel is the first button, so that Return starts nothing that cannot be undone.
    AlertDescription confirmation(const OptionalText& offeredVersion, Completion completion) const;

    // ---- during and after an update -------------------------------------------------------------------------------

    /// The printer is in its loader, and no update of this program has sent it there: Ignore, and Update Firmware.
    AlertDescription loaderFound(Completion completion) const;
    /// Advice after "Ignore".
    AlertDescription loaderLeft() const;
    /// The firmware files are damaged while the printer is in its loader.
    AlertDescription damagedFile() const;
    /// The two reports at the end of an update, with the versions before and now.
    AlertDescription success(const OptionalText& previousVersion, const OptionalText& version) const;
    AlertDescription problem(const OptionalText& previousVersion, const OptionalText& version) const;

    // ---- the USB serial-number setting: application-modal ---------------------------------------------------------

    AlertDescription powerCycle(std::shared_ptr<CheckBox> suppression, Completion completion) const;
    AlertDescription printerBusy() const;

  private:
    std::string localized(const char* key) const;
    AlertDescription retry(AlertKind kind, std::string title, std::string message, Completion completion) const;
    AlertDescription notice(AlertKind kind, std::string title, std::string message, std::string button,
                            Completion completion = {}) const;

    const TBUSBPrinterZUL& _printer;
};

} // namespace zul
