// The questions to the operator before an update, and the effect of each answer.
#include "Lab.h"

#include "protocol/StatusTexts.h"

#include <algorithm>
#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

// Runs to the readiness check: agrees and continues.
void agree(Lab& lab) {
    lab.printer()->updateFirmware();
    lab.rest();
    lab.operatorDesk.setAgreed(true);
    REQUIRE(lab.operatorDesk.press("Continue"));
    lab.rest();
}

} // namespace

TEST_CASE("the agreement comes first, names the version, and offers only Quit until the box is ticked") {
    Lab lab;
    lab.startWithVK14();
    lab.printer()->updateFirmware();
    lab.rest();
    CHECK(lab.operatorDesk.title() == "Attention:");
    CHECK(lab.operatorDesk.message() ==
          "This update tool will upgrade the printer firmware to version VK14 01.61. This process cannot be undone");
    CHECK(lab.operatorDesk.buttons() == std::vector<std::string>{"Quit", "Continue"});
    CHECK(lab.operatorDesk.alert().style == AlertStyle::critical);
    CHECK(lab.operatorDesk.alert().iconName == "ZUL_VK_Series");
    CHECK(lab.operatorDesk.isEnabled("Continue") == false);
    lab.operatorDesk.setAgreed(true);
    CHECK(lab.operatorDesk.isEnabled("Continue"));
    lab.operatorDesk.setAgreed(false);
    CHECK(lab.operatorDesk.press("Continue") == false);
    CHECK(lab.wire().empty());
}

TEST_CASE("Quit in the agreement ends the application and sends no command") {
    Lab lab;
    lab.startWithVK14();
    lab.printer()->updateFirmware();
    lab.rest();
    CHECK(lab.operatorDesk.press("Quit"));
    lab.rest();
    CHECK(lab.application.terminations == 1);
    CHECK(lab.wire().empty());
}

TEST_CASE("the confirmation has Cancel first, and Cancel leaves the printer unchanged") {
    Lab lab;
    lab.startWithVK14();
    agree(lab);
    CHECK(lab.operatorDesk.title() == "-- Warning --\n\nAre you certain you want to update the firmware?");
    CHECK(lab.operatorDesk.message() ==
          "The printer may be permanently damaged if it is unplugged or loses power during the update process.");
    CHECK(lab.operatorDesk.buttons() == std::vector<std::string>{"Cancel", "Update Firmware to VK14 01.61"});
    CHECK(lab.operatorDesk.press("Cancel"));
    lab.rest();
    CHECK(lab.wire() == Wire{"STATUS"});
    CHECK(lab.progress() == 0);
}

TEST_CASE("a printer that is not ready is reported with its status, and Proceed repeats all checks") {
    Lab lab;
    lab.startWithVK14("status=00000:01000:00000"); // idle at the attachment, then open, then closed again
    agree(lab);
    CHECK(lab.operatorDesk.title() == "Printer Not Ready");
    CHECK(lab.operatorDesk.message() == "Please correct the following issue: Cover Open");
    CHECK(lab.operatorDesk.buttons() == std::vector<std::string>{"Proceed", "Cancel"});
    CHECK(lab.operatorDesk.press("Proceed"));
    lab.rest();
    CHECK(lab.operatorDesk.title().starts_with("-- Warning --"));
    CHECK(lab.wire() == Wire{"STATUS", "STATUS"});
}

TEST_CASE("the status 0 instead of 00000 has the text Idle but is not ready") {
    Lab lab;
    lab.startWithVK14("status=0");
    agree(lab);
    CHECK(lab.operatorDesk.title() == "Printer Not Ready");
    CHECK(lab.operatorDesk.message() == "Please correct the following issue: Idle");
}

TEST_CASE("a busy printer is reported as busy, and Proceed continues once it is idle") {
    Lab lab;
    lab.startWithVK14();
    lab.bus.setHeldByOther(0, true);
    agree(lab);
    CHECK(lab.operatorDesk.title() == "Printer Busy");
    CHECK(lab.operatorDesk.message() ==
          "Another application is using the printer. Please proceed when the printer becomes available.");
    lab.bus.setHeldByOther(0, false);
    lab.rest();
    CHECK(lab.operatorDesk.press("Proceed"));
    lab.rest();
    CHECK(lab.operatorDesk.title().starts_with("-- Warning --"));
}

TEST_CASE("Proceed in an alert of a printer that was detached leads to Printer Error") {
    Lab lab;
    lab.startWithVK14("status=00000:01000");
    agree(lab);
    REQUIRE(lab.operatorDesk.title() == "Printer Not Ready");
    lab.bus.unplug(0);
    lab.rest();
    CHECK(lab.operatorDesk.press("Proceed"));
    lab.rest();
    CHECK(lab.operatorDesk.title() == "Printer Error");
    CHECK(lab.operatorDesk.message() ==
          "The printer is not responding properly. Please power-cycle the printer and try again.");
    CHECK(lab.operatorDesk.press("Cancel"));
    CHECK(lab.rows() == 0);
}

TEST_CASE("a newer installed version is not replaced, and the question is not repeated") {
    Lab lab;
    lab.startWithVK14("firmware=VK14 01.70");
    agree(lab);
    CHECK(lab.operatorDesk.title() == "Firmware update not needed");
    CHECK(lab.operatorDesk.message() == "This printer has firmware version 1.70 installed.");
    CHECK(lab.operatorDesk.buttons() == std::vector<std::string>{"OK"});
    CHECK(lab.operatorDesk.press("OK"));
    lab.rest();
    CHECK(lab.wire().empty());
}

TEST_CASE("a newer installed version is replaced if the settings allow it") {
    Lab lab;
    lab.defaults.setBool(kInstallOlderFirmwareVersion, true);
    lab.startWithVK14("firmware=VK14 01.70");
    lab.update();
    CHECK(lab.operatorDesk.message() == "Firmware version updated from VK14 01.70 to VK14 01.61");
}

TEST_CASE("a check without a status reply ends without an alert and without a command") {
    Lab lab;
    lab.startWithVK14("fault=silence@STATUS#2,fault=silence@STATUS#3");
    agree(lab);
    CHECK(lab.operatorDesk.waiting() == 0);
    CHECK(lab.wire() == Wire{"STATUS", "STATUS"}); // the query was repeated once
    CHECK(lab.logged("Received a null printer status reply ... will try again later"));
}

TEST_CASE("the alerts of two printers refer to their own printer") {
    Lab lab;
    lab.attach("VK14,serial=A");
    lab.attach("VK14,serial=B");
    lab.start();
    lab.printer(0)->updateFirmware();
    lab.printer(1)->updateFirmware();
    lab.rest();
    REQUIRE(lab.operatorDesk.waiting() == 2);
    CHECK(lab.operatorDesk.alert().printerName == "VK14 A (1-1)");
    lab.operatorDesk.setAgreed(true);
    CHECK(lab.printer(1)->customerDidAgree() == false);
    CHECK(lab.operatorDesk.press("Continue"));
    CHECK(lab.operatorDesk.alert().printerName == "VK14 B (1-2)");
    CHECK(lab.operatorDesk.isEnabled("Continue") == false);
}

TEST_CASE("switching the USB serial number asks for a power cycle and removes the model's queues") {
    Lab lab;
    lab.environment.admittedProductIDs = {0x8B01};
    std::vector<std::string> commandLines;
    lab.environment.shell = [&](const std::string& line) {
        commandLines.push_back(line);
        return 0;
    };
    lab.attach("VK26,usb-serial=off");
    lab.start();
    CHECK(lab.printer()->usbISerialString() == "Disabled");
    lab.forgetWire();
    lab.printer()->setUsbISerial(true);
    lab.rest();
    CHECK(lab.wire() == Wire{"MNT_WTUSB_ISERI_SET", "MNT_RDUSB_ISERI_SET"});
    CHECK(lab.printer()->usbISerialString() == "Enabled");
    CHECK(lab.operatorDesk.title() == "Please power-cycle the selected printer now to complete the process!");
    CHECK(lab.operatorDesk.alert().isModal);
    CHECK(commandLines ==
          std::vector<std::string>{"for q in $(lpstat -v|awk '/QP-VK26[?]/ {print $3}');do lpadmin -x ${q%:};done"});
}

TEST_CASE("switching the USB serial number of a busy printer reports that it is busy") {
    Lab lab;
    lab.environment.admittedProductIDs = {0x8B01};
    lab.attach("VK26,usb-serial=off");
    lab.start();
    lab.bus.setHeldByOther(0, true);
    lab.printer()->setUsbISerial(true);
    lab.rest();
    CHECK(lab.operatorDesk.title() == "The Selected Printer is Unavailable. (Busy)");
    CHECK(lab.operatorDesk.alert().isModal);
}
