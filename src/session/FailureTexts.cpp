// Return codes as sentences. Called where a command or the start of a run has failed.
#include "session/FailureTexts.h"

#include "platform/foundation/LocalizedFormat.h"
#include "update/UpdateTexts.h"

namespace zul {

namespace {

// Of this process or of the machine: the printer is as it was.
bool isWithoutResources(IOReturn code) {
    return code == kIOReturnNoResources || code == kIOReturnNoMemory;
}

} // namespace

std::string openFailureText(const std::string& printer, IOReturn code) {
    if (isWithoutResources(code)) {
        return localizedFormat("%s cannot be opened: too many files are open on this machine, or its memory is full. "
                               "Close other programs, then try again.",
                               printer);
    }
    return localizedFormat("%s cannot be opened: %s. Plug it in again.", printer, describeFailure(code));
}

std::string commandFailureText(const std::string& printer, IOReturn code) {
    return localizedFormat("%s did not take the command: %s. Switch it off and on, then try again.", printer,
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
