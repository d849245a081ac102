// Prints the udev rule for the printers that discovery accepts, so that there is one list of vendors and not two.
#include "archive/ProductTable.h"

#include <cstdio>

namespace {

constexpr const char* kIntroduction = "# Access to ZUL printers and to their firmware loaders over USB: for who sits "
                                      "at the machine (uaccess), and for the\n"
                                      "# group lp, which the print service belongs to. The nodes of the kernel's own "
                                      "printer driver belong to it: through them\n"
                                      "# it is seen whether a job is printed, and a printer whose jobs cannot be seen "
                                      "is left alone. The number of this file\n"
                                      "# lets it come before 73-seat-late.rules, which acts on the tag. Made by "
                                      "packaging/UdevRule.cpp; after installing it:\n"
                                      "# udevadm control --reload, then plug the printer in again.\n";

constexpr const char* kDeviceRule = "SUBSYSTEM==\"usb\", ENV{DEVTYPE}==\"usb_device\", ATTR{idVendor}==\"%04x\", "
                                    "MODE=\"0664\", GROUP=\"lp\", TAG+=\"uaccess\"\n";
constexpr const char* kDriverRule = "SUBSYSTEM==\"usbmisc\", KERNEL==\"lp[0-9]*\", ATTRS{idVendor}==\"%04x\", "
                                    "MODE=\"0660\", GROUP=\"lp\", TAG+=\"uaccess\"\n";

} // namespace

int main() {
    std::printf("%s\nACTION==\"remove\", GOTO=\"zul_printer_utility_end\"\n", kIntroduction);
    for (const unsigned vendor : zul::productVendorIDs()) {
        std::printf(kDeviceRule, vendor);
        std::printf(kDriverRule, vendor);
    }
    std::printf("LABEL=\"zul_printer_utility_end\"\n");
    return std::fflush(stdout) == 0 ? 0 : 1;
}
