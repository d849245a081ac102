// The update of a VK14 from the operator's click to the report, over both restarts, as recorded by the printer.
#include "Lab.h"

#include "archive/SRecord.h"
#include "platform/files/Files.h"

#include <algorithm>
#include <doctest/doctest.h>
#include <future>

using namespace zul;
using namespace std::chrono_literals;

namespace {

void append(Wire& wire, const Wire& more) {
    wire.insert(wire.end(), more.begin(), more.end());
}

Wire wholeUpdateWire() {
    Wire wire = {"STATUS", "STATUS", "FW_UPDFLASH_REWRITE", "leave", "arrive"};
    append(wire, {"INFO  FVER", "STATUS", "FW_UPDFLASH_PROGRAM", "STATUS", "leave", "arrive"});
    append(wire, {"INFO  FVER", "STATUS"});
    append(wire, tablesWire());
    append(wire, {"STATUS"});
    append(wire, attachWire());
    return wire;
}

VirtualJournalEntry commandInJournal(const Lab& lab, const std::string& text, int occurrence = 1) {
    for (const VirtualJournalEntry& entry : lab.journal->entries()) {
        if (entry.event == "command" && entry.command == text && --occurrence == 0) return entry;
    }
    FAIL("the printer never received " << text);
    return {};
}

Data archiveFile(const std::string& name) {
    const auto contents = contentsOfFile(Lab::sampleArchive() / name);
    REQUIRE(contents);
    return *contents;
}

} // namespace

TEST_CASE("a whole update sends exactly the commands of the two halves, the tables and the report") {
    Lab lab;
    lab.startWithVK14();
    lab.update();
    CHECK(lab.wire() == wholeUpdateWire());
}

TEST_CASE("an update ends with the new version, new tables and the report of both versions") {
    Lab lab;
    lab.startWithVK14();
    lab.update();

    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
    CHECK(lab.operatorDesk.message() == "Firmware version updated from VK14 01.60 to VK14 01.61");
    CHECK(lab.operatorDesk.buttons() == std::vector<std::string>{"Finish"});
    REQUIRE(lab.rows() == 1);
    CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion) == "VK14 01.61");
    CHECK(lab.infoText(HOLVEN_TBPrinterColorTableVersion) == "0161");
    CHECK(lab.infoText(HOLVEN_TBPrinterStatus) == "Idle");
    CHECK(lab.printer()->inFirmwareUpdate() == false);
    CHECK(lab.printer()->ownership() == Ownership::none);
    lab.bus.inspect(0, [](const VirtualPrinter& printer) {
        CHECK(printer.firmware() == "VK14 01.61");
        CHECK(printer.tables().writtenNames() == std::vector<std::string>{"VK14_300_0161.CWD", "VK14_600_0161.CWD"});
    });
}

TEST_CASE("the image on the wire is the archive's file, padded to a multiple of four") {
    Lab lab;
    lab.startWithVK14();
    lab.update();
    const Data image = paddedData(archiveFile("VK14 01.61.fw"));
    const auto entry = commandInJournal(lab, "FW_UPDFLASH_PROGRAM");
    CHECK(entry.length == image.size());
    CHECK(entry.sha256 == sha256Of(image));
    std::string header = "\x1BPFW_UPDFLASH_PROGRAM";
    header.resize(24, ' ');
    const std::string size = std::to_string(image.size());
    header += std::string(8 - size.size(), '0') + size;
    CHECK(std::string(entry.header.begin(), entry.header.end()) == header);
}

TEST_CASE("each table goes out as its padded upper-case name and its unpadded bytes") {
    Lab lab;
    lab.startWithVK14();
    lab.update();
    Data name = dataFromText("VK14_300_0161.CWD");
    name.resize(20, 0);
    CHECK(commandInJournal(lab, "TBL_WTVersion").sha256 == sha256Of(name));
    const Data table = archiveFile("VK14_300_0161.cwd");
    CHECK(table.size() % 4 != 0);
    CHECK(commandInJournal(lab, "TBL_WTCTRLD_UPDATE_CW").sha256 == sha256Of(table));
    CHECK(commandInJournal(lab, "TBL_WTCTRLD_UPDATE_CW", 2).sha256 == sha256Of(archiveFile("VK14_600_0161.cwd")));
}

TEST_CASE("the progress value is 1 during the restart into the loader, 2 into the firmware, 3 at the end") {
    Lab lab;
    lab.startWithVK14("restart=2000,program=20000");
    lab.confirmUpdate();
    lab.advance(1s); // detached, not back yet
    CHECK(lab.rows() == 0);
    const auto saved = [] {
        return TBUSBPrinter::deviceInfoForKey("2A71000301100000")->integer(HOLVEN_TBPrinterDeviceFirmwareStatus);
    };
    CHECK(saved() == 1);
    lab.advance(8s); // back in its loader, the version query timed out, the image written
    REQUIRE(lab.rows() == 1);
    CHECK(lab.progress() == 2);
    CHECK(lab.printer()->inFirmwareUpdate());
    lab.advance(20s); // programming ends, it restarts
    lab.rest();
    CHECK(lab.progress() == 3);
    CHECK(lab.logged("firmware version changed from VK14 01.60 to VK14 01.61"));

    CHECK(lab.operatorDesk.press("Finish"));
    lab.bus.unplug(0);
    lab.rest();
    CHECK(saved() == 3);
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.progress() == 0);
    CHECK(lab.logged("found a device finished with firmware update"));
    CHECK(lab.operatorDesk.waiting() == 0);
}

TEST_CASE("the texts of an update are shown in the status column until the next real status") {
    Lab lab;
    lab.startWithVK14("program=60000");
    lab.confirmUpdate();
    lab.rest(30s);
    CHECK(lab.logged("forcing printer status string to \"Updating firmware ...\""));
    CHECK(lab.logged("forcing printer status string to \"Writing firmware ...\""));
    CHECK(lab.infoText(HOLVEN_TBPrinterStatus) == "Firmware Update Mode");
    lab.rest();
    CHECK(lab.logged("forcing printer status string to \"Updating color tables ...\""));
}

TEST_CASE("a printer that is busy after its restart gets its tables once it is idle") {
    Lab lab;
    lab.startWithVK14("after-update=00500:00500:00510:00000");
    lab.update();
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
    const Wire wire = lab.wire();
    const auto clear = std::ranges::find(wire, std::string("TBL_CL"));
    REQUIRE(clear - wire.begin() >= 4);
    CHECK(Wire(clear - 4, clear) == Wire{"STATUS", "STATUS", "STATUS", "STATUS"});
}

TEST_CASE("a pass that wrote no table clears the printer's tables, and both versions are reported as a problem") {
    Lab lab;
    lab.startWithVK14();
    const auto printer = lab.printer();
    lab.forgetWire();
    printer->deviceInfoDict()->setString(HOLVEN_TBPrinterFirmwareVersionPrevious, "VK14 01.50");
    // The archive check reads the list again; the value stored when the queue runs is the one that is used.
    std::promise<void> listIsCut;
    printer->printerCommandQueue()->async([&] { listIsCut.get_future().wait(); });
    printer->finishFirmwareUpdate();
    printer->deviceInfoDict()->set(cFirmwareFilenames, std::vector<std::string>{"VK14 01.61.fw", "VK14_300_0161.cwd"});
    listIsCut.set_value();
    lab.rest();
    CHECK(lab.operatorDesk.title() == "There was a problem with the firmware update!");
    CHECK(lab.operatorDesk.message() == "Previous firmware version: VK14 01.50 current version: VK14 01.60");
    CHECK(lab.operatorDesk.buttons() == std::vector<std::string>{"OK"});
    const Wire wire = lab.wire();
    CHECK(std::ranges::count(wire, std::string("TBL_CL")) == 1);
    CHECK(std::ranges::none_of(wire, [](const std::string& command) { return command.starts_with("TBL_WT"); }));
    CHECK_FALSE(printer->inFirmwareUpdate());
}

TEST_CASE("the same version is installed again without a question") {
    Lab lab;
    lab.startWithVK14("firmware=VK14 01.61");
    lab.update();
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
    CHECK(lab.operatorDesk.message() == "Firmware version updated from VK14 01.61 to VK14 01.61");
    CHECK(lab.logged("firmware version unchanged at VK14 01.61"));
}

TEST_CASE("two printers are updated at the same time and do not mix") {
    Lab lab;
    lab.attach("VK14,serial=A");
    lab.attach("VK14,serial=B,speed=1000000");
    lab.start();
    lab.forgetWire();
    const auto first = lab.printer(0);
    const auto second = lab.printer(1);
    for (const auto& printer : {first, second}) {
        printer->updateFirmware();
        lab.rest(1ms);
        lab.operatorDesk.setAgreed(true);
        REQUIRE(lab.operatorDesk.press("Continue"));
        lab.rest(1ms); // the first one must not have ended before the second begins
        REQUIRE(lab.operatorDesk.press("Update Firmware to VK14 01.61"));
    }
    lab.rest();
    CHECK(lab.wire("A") == wholeUpdateWire());
    CHECK(lab.wire("B") == wholeUpdateWire());
    CHECK(lab.operatorDesk.waiting() == 2);
    REQUIRE(lab.rows() == 2);
    CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion, 0) == "VK14 01.61");
    CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion, 1) == "VK14 01.61");
}

TEST_CASE("a printer whose version was never read is re-enumerated instead of updated") {
    Lab lab;
    lab.attach("VK14,fault=silence@FVER,fault=silence@FVER#2");
    lab.start();
    REQUIRE(lab.printer()->firmwareVersion() == std::nullopt);
    lab.forgetWire();
    lab.confirmUpdate();
    lab.rest();
    CHECK(lab.logged("Successfully reenumerated ZUL VK14 000001"));
    const Wire wire = lab.wire();
    CHECK(std::ranges::count(wire, std::string("FW_UPDFLASH_REWRITE")) == 0);
    CHECK(std::ranges::count(wire, std::string("leave")) == 1);
    CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion) == "VK14 01.60");
}
