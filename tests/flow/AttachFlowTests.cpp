// From the attachment to the row: the queries at an attachment, and the contents of the list.
#include "Lab.h"

#include <algorithm>
#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

TEST_CASE("a printer that is attached at the start is listed with its complete device info") {
    Lab lab;
    lab.attach("VK14,serial=123456,lifetime=4711");
    lab.start();

    REQUIRE(lab.rows() == 1);
    CHECK(lab.printer()->manufacturer() == "ZUL");
    CHECK(lab.printer()->model() == "VK14");
    CHECK(lab.infoText(HOLVEN_TBPrinterStatus) == "Idle");
    CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion) == "VK14 01.60");
    CHECK(lab.infoText(HOLVEN_TBPrinterSerialNumber) == "123456");
    CHECK(lab.infoText(HOLVEN_TBPrinterLifetimeCounter) == "4711");
    CHECK(lab.infoText(HOLVEN_TBPrinterColorTableVersion) == "0160");
    CHECK(lab.printer()->newFirmwareVersion() == "VK14 01.61");
    CHECK(lab.printer()->keyUSBdevice() == "2A71000301100000");
    CHECK(lab.printer()->serialNumberUSB() == "123456");
}

TEST_CASE("a printer that is seen for the first time gets each query once, and its interface is closed afterwards") {
    Lab lab;
    lab.attach("VK14");
    lab.start();

    Wire expected = {"arrive"};
    for (const std::string& command : attachWire()) expected.push_back(command);
    CHECK(lab.wire() == expected);
    CHECK(lab.printer()->ownership() == Ownership::none);
    CHECK(lab.printer()->state() == kTBPrinterClosed);
    CHECK(lab.logged("initing device for key 2A71000301100000"));
    CHECK(lab.operatorDesk.waiting() == 0);
}

TEST_CASE("the first frame after an attachment is byte for byte the status command") {
    Lab lab;
    lab.attach("VK14");
    lab.start();
    const auto entries = lab.journal->entries();
    const auto first = std::ranges::find(entries, std::string("command"), &VirtualJournalEntry::event);
    REQUIRE(first != entries.end());
    std::string header = "\x1BPSTATUS";
    header.resize(32, ' ');
    CHECK(std::string(first->header.begin(), first->header.end()) == header);
}

TEST_CASE("a known printer that is replugged is queried for its status, and twice for its device info") {
    Lab lab;
    lab.startWithVK14();
    lab.bus.unplug(0);
    lab.rest();
    CHECK(lab.rows() == 0);
    lab.bus.plug(0);
    lab.rest();

    Wire expected = {"leave", "arrive", "STATUS"};
    for (int round = 0; round < 2; ++round) {
        for (const std::string& command : attachWire()) expected.push_back(command);
    }
    CHECK(lab.wire() == expected);
    CHECK(lab.rows() == 1);
    CHECK(lab.operatorDesk.waiting() == 0);
}

TEST_CASE("a version reply that is not text keeps the earlier version, whatever state the printer returns from") {
    for (const std::int64_t progress : {2, 3}) {
        CAPTURE(progress);
        Lab lab;
        lab.attach("VK14,firmware=VK14 \xFF");
        lab.start();
        const std::string key = lab.printer()->keyUSBdevice();
        lab.bus.unplug(0);
        lab.rest();
        const auto saved = TBUSBPrinter::deviceInfoForKey(key);
        saved->set(HOLVEN_TBPrinterDeviceFirmwareStatus, progress);
        saved->set(HOLVEN_TBPrinterFirmwareVersion, std::string("VK14 01.60"));
        lab.bus.plug(0);
        lab.rest();
        CHECK(lab.logged("printer firmware is currently reported as \"(null)\""));
        CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion) == "VK14 01.60");
    }
}

TEST_CASE("a missing version reply removes the earlier version") {
    Lab lab;
    std::string faults;
    for (int question = 1; question < 9; ++question) faults += ",fault=silence@FVER#" + std::to_string(question);
    lab.attach("VK14" + faults);
    lab.start();
    const std::string key = lab.printer()->keyUSBdevice();
    lab.bus.unplug(0);
    lab.rest();
    const auto saved = TBUSBPrinter::deviceInfoForKey(key);
    saved->set(HOLVEN_TBPrinterDeviceFirmwareStatus, std::int64_t{3});
    saved->set(HOLVEN_TBPrinterFirmwareVersion, std::string("VK14 01.60"));
    lab.bus.plug(0);
    lab.rest();
    CHECK_FALSE(lab.printer()->firmwareVersion());
}

TEST_CASE("two printers at the start are two rows in the order of the bus") {
    Lab lab;
    lab.attach("VK14,serial=A");
    lab.attach("VK14,serial=B");
    lab.start();
    REQUIRE(lab.rows() == 2);
    CHECK(lab.infoText(HOLVEN_TBPrinterSerialNumber, 0) == "A");
    CHECK(lab.infoText(HOLVEN_TBPrinterSerialNumber, 1) == "B");
}

TEST_CASE("a device with two printer interfaces is two printer objects") {
    Lab lab;
    lab.attach("VK14,interfaces=2");
    lab.start();
    CHECK(lab.rows() == 2);
    lab.bus.unplug(0);
    lab.rest();
    CHECK(lab.rows() == 0);
}

TEST_CASE("a model that is not admitted is ignored without a log line and without being opened") {
    Lab lab;
    lab.attach("VK26");
    lab.start();
    CHECK(lab.rows() == 0);
    CHECK(lab.wire() == Wire{"arrive"});
    CHECK(lab.logged("Found a device") == false);
}

TEST_CASE("a printer that is detached before its row was inserted leaves no row") {
    Lab lab;
    lab.start();
    lab.attach("VK14"); // handled at once; its row is still queued on the main queue
    lab.bus.unplug(0);
    lab.rest();
    CHECK(lab.rows() == 0);
    CHECK(lab.logged("removing ZUL VK14"));
    CHECK(lab.logged("failed to match a printer object") == false);
}

TEST_CASE("a printer that is unplugged during its queries loses its row after its commands have ended") {
    Lab lab;
    lab.startWithVK14("fault=silence@LIFE#2");
    lab.printer()->updateInfo();
    lab.advance(1s); // waiting for a reply that does not come
    CHECK(lab.rows() == 1);
    lab.bus.unplug(0);
    lab.rest();
    CHECK(lab.rows() == 0);
}

TEST_CASE("a printer without a 1284 ID is listed without a queue, is not updated, and loses its row when detached") {
    Lab lab;
    lab.attach("VK14,id1284=off");
    lab.start();
    REQUIRE(lab.rows() == 1);
    CHECK(lab.printer()->printerCommandQueue() == nullptr);
    CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion) == "VK14 01.60");

    lab.forgetWire();
    lab.printer()->updateFirmware();
    lab.rest();
    CHECK(lab.operatorDesk.title() == "Printer Error");
    CHECK(lab.operatorDesk.press("Cancel"));
    CHECK(lab.wire().empty());

    lab.bus.unplug(0);
    lab.rest();
    CHECK(lab.rows() == 0);
}

TEST_CASE("a printer held by another program is shown so, and is queried as soon as that program releases it") {
    Lab lab;
    lab.attach("VK14");
    lab.bus.setHeldByOther(0, true);
    lab.start();
    REQUIRE(lab.rows() == 1);
    CHECK(lab.printer()->ownership() == Ownership::otherProgram);
    CHECK(lab.printer()->state() == kTBPrinterOpening);
    CHECK(lab.infoText(HOLVEN_TBPrinterStatus) == "In use by other application");
    CHECK(lab.wire() == Wire{"arrive"});

    lab.bus.setHeldByOther(0, false);
    lab.rest();
    CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion) == "VK14 01.60");
    CHECK(lab.printer()->ownership() == Ownership::none);
}

TEST_CASE("after termination no further arrival is reported") {
    Lab lab;
    lab.start();
    CHECK(lab.controller->applicationShouldTerminate() == TerminateReply::now);
    lab.attach("VK14");
    lab.rest();
    CHECK(lab.rows() == 0);
}
