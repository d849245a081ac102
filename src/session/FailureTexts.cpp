// Translates return codes into sentences for the operator.
// Called on any thread after a command or the start of a run has failed.
#include "session/FailureTexts.h"

#include "Classes/TBUSBPrinter.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/usb/IOReturn.h"
#include "session/AttachedPrinters.h"
#include "update/UpdateTexts.h"
#include "usb/libusb/SystemFolders.h"

#include <string>

namespace zul {

namespace {

// The cause is this process or the machine, not the printer.
bool isWithoutResources(IOReturn code) {
    return code == kIOReturnNoResources || code == kIOReturnNoMemory;
}

// The rule grants access to a printer's own node and to that of the kernel's driver.
std::string rightsRemedy() {
    return localizedFormat("Install the udev rule 70-zul-printer-utility.rules (to /etc/udev/rules.d/), run \"udevadm "
                           "control --reload\" and plug the printer in again; or join the group lp.");
}

std::string hiddenJobsText(const std::string& printer, const std::string& nodes) {
    return localizedFormat("%s may not be used: no right to open %s, where the kernel's printer driver shows whether a "
                           "job is being printed. %s",
                           printer, nodes, rightsRemedy());
}

} // namespace

std::string openFailureText(const std::string& printer, IOReturn code, const std::string& node) {
    if (code == kIOReturnNotPrivileged) {
        return localizedFormat("%s may not be used: no right to open %s. %s", printer, node, rightsRemedy());
    }
    if (isWithoutResources(code)) {
        return localizedFormat("%s cannot be opened: too many files are open on this machine, or its memory is full. "
                               "Close other programs, then try again.",
                               printer);
    }
    return localizedFormat("%s cannot be opened: %s. Plug it in again.", printer, describeFailure(code));
}

std::string openFailureText(const TBUSBPrinter& printer, IOReturn code, const SystemFolders& folders) {
    if (code != kIOReturnNotPrivileged) return openFailureText(displayNameOf(printer), code, {});
    // The printer's own node is open, so only a node of the kernel's driver can have been refused.
    std::string nodes;
    for (const std::string& node : printerDriverNodes(folders, printer.locationText())) {
        nodes += (nodes.empty() ? "" : ", ") + node;
    }
    // The driver may have been unbound since.
    return hiddenJobsText(displayNameOf(printer), nodes.empty() ? folders.dev + "/usb/lp*" : nodes);
}

std::string missingRightText(const TBUSBPrinter& printer, const SystemFolders& folders) {
    const IOReturn code = printer.openStatus();
    return code == kIOReturnNotPrivileged ? openFailureText(printer, code, folders) : std::string();
}

std::string commandFailureText(const std::string& printer, IOReturn code) {
    return localizedFormat("%s did not accept the command: %s. Switch it off and on, then try again.", printer,
                           describeFailure(code));
}

std::string resetFailureText(const std::string& printer, const std::string& reset, IOReturn code) {
    return localizedFormat("%s: %s failed: %s. Plug the printer in again.", printer, reset, describeFailure(code));
}

std::string busFailureText(IOReturn code) {
    if (code == kIOReturnNotPrivileged) {
        return localizedFormat("the USB bus cannot be watched: this user may not read it. Ask the administrator of "
                               "this machine for the right to use USB.");
    }
    return localizedFormat("the USB bus cannot be watched. Close other programs and start this one again; if that "
                           "does not help, see whether this machine has USB.");
}

} // namespace zul
