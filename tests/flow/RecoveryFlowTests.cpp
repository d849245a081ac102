// Printers that are detached at a bad moment, return late, remain in their loader or reply badly: what is lost, what
// continues by itself, and what the operator can do.
#include "Lab.h"

#include <algorithm>
#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

// The operator starts again with a printer in firmware update mode: no question after the agreement.
void uploadAgain(Lab& lab) {
    lab.printer()->updateFirmware();
    lab.rest(100ms);
    REQUIRE(lab.operatorDesk.title() == "Attention:");
    lab.operatorDesk.setAgreed(true);
    REQUIRE(lab.operatorDesk.press("Continue"));
    lab.rest();
}

std::ptrdiff_t timesSeen(const Lab& lab, const char* command) {
    const Wire wire = lab.wire();
    return std::ranges::count(wire, std::string(command));
}

// A printer that is attached for the second time is known, and is probed for its state.
void startWithKnownLoader(Lab& lab) {
    lab.startWithVK14("mode=loader");
    lab.bus.unplug(0);
    lab.rest();
    lab.bus.plug(0);
    lab.rest();
}

} // namespace

TEST_CASE("a printer unplugged during the image is updated by starting again") {
    Lab lab;
    lab.startWithVK14("fault=unplug@FLASH_PROGRAM");
    lab.confirmUpdate();
    lab.rest(1min); // it returned as its loader and is waited for; it does not become idle by itself
    REQUIRE(lab.rows() == 1);
    CHECK(lab.progress() == 2);
    CHECK(lab.infoText(HOLVEN_TBPrinterStatus) == "Firmware Update Mode");
    uploadAgain(lab);
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
    CHECK(lab.operatorDesk.message() == "Firmware version updated from VK14 01.60 to VK14 01.61");
    CHECK(timesSeen(lab, "FW_UPDFLASH_PROGRAM") == 1); // the first one was never complete
}

TEST_CASE("a printer whose loader refuses the image remains in update mode until the operator starts again") {
    Lab lab;
    lab.startWithVK14("fault=stay-in-loader@FLASH_PROGRAM");
    lab.confirmUpdate();
    lab.rest(1min);
    CHECK(lab.infoText(HOLVEN_TBPrinterStatus) == "Firmware Update Mode");
    CHECK(lab.operatorDesk.waiting() == 0);
    uploadAgain(lab);
    CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion) == "VK14 01.61");
}

TEST_CASE("a printer unplugged while it is waited for loses its row, and its wait ends") {
    Lab lab;
    lab.startWithVK14("fault=stay-in-loader@FLASH_PROGRAM");
    lab.confirmUpdate();
    lab.rest(1min);
    REQUIRE(lab.rows() == 1);
    lab.bus.unplug(0);
    CHECK(lab.rest());
    CHECK(lab.rows() == 0);
    CHECK(timesSeen(lab, "TBL_CL") == 0);
}

TEST_CASE("a printer unplugged during its restart into the loader continues when it is plugged in again") {
    Lab lab;
    lab.startWithVK14("restart=5000");
    lab.confirmUpdate();
    lab.advance(1s);
    lab.bus.unplug(0); // while it restarts: it does not return by itself
    lab.advance(1min);
    CHECK(lab.rows() == 0);
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
}

TEST_CASE("a printer unplugged while the first half waits for it gets no further command, and is updated by starting "
          "again") {
    Lab lab;
    lab.startWithVK14("status=00000:00000:00001:00000"); // printing when the first half begins
    lab.confirmUpdate();
    lab.advance(200ms); // before the next query
    lab.bus.unplug(0);
    CHECK(lab.rest());
    CHECK(lab.rows() == 0);
    CHECK(timesSeen(lab, "FW_UPDFLASH_REWRITE") == 0);
    lab.bus.plug(0);
    lab.rest();
    lab.update();
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
}

TEST_CASE("a printer unplugged during its restart into the new firmware continues when it is plugged in again") {
    Lab lab;
    lab.startWithVK14("restart=20000,program=1000");
    lab.confirmUpdate();
    lab.advance(20s + 8s); // back in its loader, programmed, and restarting
    REQUIRE(timesSeen(lab, "FW_UPDFLASH_PROGRAM") == 1);
    REQUIRE(lab.rows() == 0);
    lab.bus.unplug(0);
    lab.advance(1min);
    CHECK(lab.rows() == 0);
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
}

TEST_CASE("a printer unplugged while its new firmware gets ready gets its tables when it is plugged in again") {
    Lab lab;
    lab.startWithVK14("after-update=00001:00001:00001:00001:00000");
    lab.confirmUpdate();
    const auto isPrinting = [&] { return lab.rows() == 1 && lab.infoText(HOLVEN_TBPrinterStatus) == "Printing"; };
    for (int step = 0; step < 1000 && !isPrinting(); ++step) lab.advance(100ms);
    REQUIRE(isPrinting());
    lab.bus.unplug(0);
    CHECK(lab.rest());
    CHECK(lab.rows() == 0);
    CHECK(timesSeen(lab, "TBL_CL") == 0);
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
    CHECK(timesSeen(lab, "TBL_WTCTRLD_UPDATE_CW") == 2);
}

TEST_CASE("a printer that returns very late is updated") {
    Lab lab;
    lab.startWithVK14("restart=600000");
    lab.confirmUpdate();
    lab.rest(2h);
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
}

TEST_CASE("a printer that never returns leaves no row, and its progress is stored") {
    Lab lab;
    lab.startWithVK14("fault=never-back@FLASH_REWRITE");
    lab.confirmUpdate();
    CHECK(lab.rest());
    CHECK(lab.rows() == 0);
    CHECK(TBUSBPrinter::deviceInfoForKey("2A71000301100000")->integer(HOLVEN_TBPrinterDeviceFirmwareStatus) == 1);
}

TEST_CASE("a printer that returns on another port is a new printer in its loader, and gets no command") {
    Lab lab;
    lab.startWithVK14("fault=elsewhere@FLASH_REWRITE");
    lab.confirmUpdate();
    lab.rest();
    REQUIRE(lab.rows() == 1);
    CHECK(lab.printer()->keyUSBdevice() == "2A71000301200000");
    CHECK(lab.infoText(HOLVEN_TBPrinterStatus) == "Firmware Update Mode");
    CHECK(lab.operatorDesk.waiting() == 0);
    CHECK(timesSeen(lab, "FW_UPDFLASH_PROGRAM") == 0);
}

TEST_CASE("a printer first seen in its loader gets only the status query, and can be updated from there") {
    Lab lab;
    lab.attach("VK14,mode=loader");
    lab.start();
    CHECK(lab.wire() == Wire{"arrive", "STATUS"});
    CHECK(lab.operatorDesk.waiting() == 0);
    uploadAgain(lab);
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
    CHECK(lab.operatorDesk.message() == "Firmware version updated from (null) to VK14 01.61");
}

TEST_CASE("a known printer that is found in its loader raises a question, and Update Firmware uploads at once") {
    Lab lab;
    startWithKnownLoader(lab);
    CHECK(lab.operatorDesk.title() == "Attention:");
    CHECK(lab.operatorDesk.message() ==
          "A printer was unexpectedly found in firmware update mode. Would you like to update the firmware? ");
    CHECK(lab.operatorDesk.buttons() == std::vector<std::string>{"Ignore", "Update Firmware"});
    CHECK(lab.operatorDesk.alert().style == AlertStyle::critical);
    CHECK(lab.operatorDesk.press("Update Firmware"));
    lab.rest();
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
}

TEST_CASE("a loader gets no image without firmware files for it, and the operator is notified") {
    Lab lab;
    lab.bundle.withholdArchive();
    startWithKnownLoader(lab);
    lab.forgetWire();
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
    lab.rest();
    CHECK(lab.operatorDesk.title() == "There was a problem with the firmware file!");
    CHECK(lab.wire().empty());
}

TEST_CASE("Ignore leaves a loader unchanged and asks for a power cycle") {
    Lab lab;
    startWithKnownLoader(lab);
    lab.forgetWire();
    REQUIRE(lab.operatorDesk.press("Ignore"));
    lab.rest();
    CHECK(lab.operatorDesk.title() == "Please power-cycle this printer");
    CHECK(lab.operatorDesk.message() == "Contact customer support if power-cycling does not resolve the issue.");
    CHECK(lab.operatorDesk.buttons() == std::vector<std::string>{"OK"});
    CHECK(lab.wire().empty());
}

TEST_CASE("a loader whose status is not a loader's mark gets no image, and the log has the reason") {
    Lab lab;
    lab.startWithVK14("fault=garbage@STATUS#4,fault=garbage@STATUS#5"); // the loader's first status and its repetition
    lab.confirmUpdate();
    lab.rest();
    CHECK(lab.logged("Bad Status () while waiting for firmware update"));
    CHECK(timesSeen(lab, "FW_UPDFLASH_PROGRAM") == 0);
    CHECK(lab.printer()->inFirmwareUpdate());
}

TEST_CASE("a loader that twice does not reply is recovered by the operator") {
    Lab lab;
    lab.startWithVK14("fault=silence@STATUS#4,fault=silence@STATUS#5"); // the loader's first status
    lab.confirmUpdate();
    lab.rest();
    CHECK(lab.logged("Received a null printer status reply ... will try again later"));
    CHECK(timesSeen(lab, "FW_UPDFLASH_PROGRAM") == 0);
    CHECK(lab.printer()->inFirmwareUpdate());
    CHECK(lab.infoText(HOLVEN_TBPrinterStatus) == "Firmware Update Mode"); // from the probe after it
    uploadAgain(lab);
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
}

TEST_CASE("an image that the printer accepts too slowly is cut off, leaves value 2 and raises no alert") {
    Lab lab;
    lab.startWithVK14("speed=200000"); // about 2 MB within 5 s is too much
    lab.confirmUpdate();
    lab.rest(1min);
    CHECK(lab.logged("ERROR: writeToInterfaceWithData: [e0004051] (kIOUSBTransactionTimeout)"));
    CHECK(lab.progress() == 2);
    CHECK(lab.operatorDesk.waiting() == 0);
    CHECK(lab.printer()->inFirmwareUpdate());
}

TEST_CASE("a wait for a printer with an open cover lasts as long as the cover is open") {
    Lab lab;
    lab.startWithVK14("after-update=01000");
    lab.confirmUpdate();
    lab.rest(3h);
    REQUIRE(lab.rows() == 1);
    CHECK(lab.infoText(HOLVEN_TBPrinterStatus) == "Cover Open");
    CHECK(lab.operatorDesk.waiting() == 0);
    CHECK(timesSeen(lab, "TBL_CL") == 0);
    CHECK(timesSeen(lab, "STATUS") > 10000); // every half second for hours
}

TEST_CASE("a printer unplugged between its tables is still reported, and the device info shows the rest") {
    Lab lab;
    lab.startWithVK14("fault=unplug@UPDATE_CW#2");
    lab.confirmUpdate();
    lab.rest();
    const auto& history = lab.operatorDesk.history();
    CHECK(std::ranges::count(history, std::string("Firmware update was successful!")) == 1);
    lab.bus.inspect(0, [](const VirtualPrinter& printer) {
        CHECK(printer.tables().writtenNames() == std::vector<std::string>{"VK14_300_0161.CWD"});
    });
}

TEST_CASE("a reply longer than any printer sends is refused even if it is repeated") {
    Lab lab;
    lab.attach("VK14,fault=long-header@FVER,fault=long-header@FVER#2");
    lab.start();
    CHECK(lab.printer()->firmwareVersion() == std::nullopt);
    CHECK(lab.infoText(HOLVEN_TBPrinterLifetimeCounter) == "42"); // its body is not taken for the next reply
    CHECK(lab.rows() == 1);
}

TEST_CASE("a reply that stalls twice loses only its own value") {
    Lab lab;
    lab.attach("VK14,fault=stall@LIFE,fault=stall@LIFE#2");
    lab.start();
    CHECK(lab.infoText(HOLVEN_TBPrinterLifetimeCounter) == "(none)");
    CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion) == "VK14 01.60");
    CHECK(lab.infoText(HOLVEN_TBPrinterSerialNumber) == "000001");
    CHECK(lab.logged("bad read (kIOUSBPipeStalled) on backchannel of ZUL VK14 000001"));
}

TEST_CASE("a reply without its carriage return is read to its end") {
    Lab lab;
    lab.attach("VK14,fault=no-cr@FVER");
    lab.start();
    CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion) == "VK14 01.60");
}

TEST_CASE("hot plug makes the printer leave and return as a known printer") {
    Lab lab;
    lab.startWithVK14();
    lab.printer()->hotPlug();
    lab.rest();
    const Wire wire = lab.wire();
    REQUIRE(wire.size() > 2);
    CHECK(Wire(wire.begin(), wire.begin() + 3) == Wire{"leave", "arrive", "STATUS"});
    CHECK(lab.rows() == 1);
}
