// The texts for operators when a printer or the bus cannot be used.
#include "Classes/StatusCodeNames.h"
#include "session/FailureTexts.h"
#include "unit/engine/PrinterBench.h"
#include "unit/session/UsbTree.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace zul::test;

namespace {

bool has(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

} // namespace

TEST_CASE("no text for an operator contains the name of a return code, and each says what to do") {
    for (const IOReturn code :
         {kIOReturnError, kIOReturnNoMemory, kIOReturnNoResources, kIOReturnBadArgument, kIOReturnExclusiveAccess,
          kIOReturnNotPrivileged, kIOReturnNoDevice, kIOReturnNotResponding, kIOReturnOverrun, kIOReturnNotFound,
          kIOReturnAborted, kIOUSBTransactionTimeout, kIOUSBPipeStalled}) {
        CAPTURE(strForIOReturn(code));
        for (const std::string& text : {openFailureText("VK14 000001 (1-4)", code, "/dev/bus/usb/001/004"),
                                        commandFailureText("VK14 000001 (1-4)", code),
                                        resetFailureText("VK14 000001 (1-4)", "reset", code), busFailureText(code)}) {
            CAPTURE(text);
            CHECK_FALSE(has(text, "kIO"));
            CHECK(text.ends_with("."));
            CHECK(has(text, ". ")); // the event, and what to do
        }
    }
}

TEST_CASE("a detached printer and one that refuses have different texts, and a lack of descriptors is not the "
          "printer's fault") {
    CHECK(openFailureText("VK14", kIOReturnNoDevice, {}) ==
          "VK14 cannot be opened: the printer was disconnected. Plug it in again.");
    CHECK(commandFailureText("VK14", kIOUSBPipeStalled) ==
          "VK14 did not accept the command: the printer refused the data. Switch it off and on, then try again.");
    CHECK(resetFailureText("VK14", "soft-reset", kIOReturnError) ==
          "VK14: soft-reset failed: the USB transfer failed. Plug the printer in again.");
    CHECK(has(openFailureText("VK14", kIOReturnNoResources, {}), "Close other programs"));
    CHECK_FALSE(has(openFailureText("VK14", kIOReturnNoMemory, {}), "Plug"));
}

TEST_CASE("a printer whose print jobs cannot be seen is reported with the refused node and the remedy") {
    PrinterBench bench;
    UsbTree tree;
    const std::string node = tree.addDriverNode("1-2.4:1.0", "lp3");
    const auto printer = bench.inlinePrinter();
    printer->setLocationText("1-2.4");
    const std::string name = nameOf(*printer);
    CHECK(missingRightText(*printer, tree.folders()).empty());
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnNotPrivileged);
    CHECK(printer->openInterface() == kIOReturnNotPrivileged);
    CHECK(printer->openStatus() == kIOReturnNotPrivileged);
    const std::string text = missingRightText(*printer, tree.folders());
    CHECK(text == openFailureText(*printer, kIOReturnNotPrivileged, tree.folders()));
    CHECK(text.starts_with(name + " may not be used: no right to open " + node + ", "));
    CHECK(has(text, "70-zul-printer-utility.rules"));
    CHECK(has(text, "plug the printer in again"));
    std::filesystem::remove_all(tree.folder / "sys/bus/usb/devices/1-2.4:1.0"); // the driver was unbound meanwhile
    CHECK(has(missingRightText(*printer, tree.folders()), "/usb/lp*"));
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnNotResponding);
    CHECK(printer->openInterface() == kIOReturnNotResponding);
    CHECK(missingRightText(*printer, tree.folders()).empty()); // that is a different problem
}
