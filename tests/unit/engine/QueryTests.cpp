// The queries of a printer, and where their replies are stored.
#include "PrinterBench.h"

#include "archive/ProductTable.h"

using namespace zul;
using namespace zul::test;

TEST_CASE("the firmware version is trimmed, stored with its notices, and logged") {
    PrinterBench bench;
    bench.inlinePrinter();
    auto notices = std::make_shared<Notices>();
    bench.printer->addObserver(notices, "firmwareVersion", nullptr);
    bench.reply(" VK14 01.60 \n\r");
    bench.printer->getPrinterFirmwareVersion();
    CHECK(bench.printer->firmwareVersion() == "VK14 01.60");
    CHECK(notices->count["firmwareVersion"] == 1);
    CHECK(bench.log.hasLogged("printer firmware version: VK14 01.60"));
    CHECK(bench.commands() == std::vector<std::string>{"INFO  FVER"});
}

TEST_CASE("a version query without a reply keeps the earlier version") {
    PrinterBench bench;
    bench.inlinePrinter()->deviceInfoDict()->set("firmwareVersion", std::string("old"));
    bench.printer->getPrinterFirmwareVersion();
    CHECK(bench.printer->firmwareVersion() == "old");
}

TEST_CASE("the inline version is returned and neither stored nor logged") {
    PrinterBench bench;
    bench.openPrinter();
    bench.reply("VK14 01.61\r");
    CHECK(bench.printer->inlineGetFirmwareString() == "VK14 01.61");
    CHECK(bench.printer->firmwareVersion() == std::nullopt);
    CHECK(bench.printer->inlineGetFirmwareString() == std::nullopt);
}

TEST_CASE("the serial number is stored unchanged, and a missing reply is shown as NULL") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.reply(" 42 \r");
    bench.printer->updatePrinterSerialNumber();
    CHECK(bench.printer->printerSerialNumber() == " 42 ");
    CHECK(bench.log.hasLogged("printerSerialNumber:  42 "));
    bench.printer->updatePrinterSerialNumber();
    CHECK(bench.printer->printerSerialNumber() == "NULL");
}

TEST_CASE("the lifetime counter loses its prefix and its zeros, and is announced under its own name") {
    PrinterBench bench;
    bench.inlinePrinter();
    auto notices = std::make_shared<Notices>();
    bench.printer->addObserver(notices, KeyValueObservable::kEveryKey, nullptr);
    bench.reply("CL0000042\r");
    bench.printer->getPrinterLifetimeCounter();
    CHECK(bench.printer->lifetimeCounter() == "42");
    CHECK(bench.printer->deviceInfoDict()->string("TBPrinterLifetimeCounter") == "42");
    CHECK(notices->count["lifetimeCounter"] == 1);
    CHECK(notices->count.contains("TBPrinterLifetimeCounter") == false);
    CHECK(bench.log.hasLogged("lifetime counter value: 42"));
    bench.reply("12345\r");
    bench.printer->getPrinterLifetimeCounter();
    CHECK(bench.printer->lifetimeCounter() == "12345");
}

TEST_CASE("a single-table model keeps its version and its checksum under the keys of the older models") {
    PrinterBench bench;
    bench.openPrinter(3);
    bench.reply(" 0160 \r");
    std::vector<std::string> seen;
    bench.printer->getPrinterColorTableVersion([&](const auto& values) { seen = values; });
    CHECK(seen == std::vector<std::string>{"0160"});
    CHECK(bench.printer->colorTableVersion() == "0160");
    CHECK(bench.log.hasLogged("printer color table version: 0160"));
    bench.reply("1F2E\r");
    bench.printer->getPrinterColorTableChecksum({});
    CHECK(bench.printer->colorTableChecksum300() == "1F2E");
    CHECK(bench.log.hasLogged("printer color table checksum: 1F2E"));
    CHECK(bench.commands() == std::vector<std::string>{"TBL_RDVersion", "MNT_RDCTRLD_CHKSUM"});
}

TEST_CASE("a VK26 is queried for three tables in the order 610, 600, 300, and its last checksum line says version") {
    PrinterBench bench;
    bench.openPrinter(0x8B01);
    for (const char* version : {"A", "B", "C"}) bench.reply(std::string(version) + '\r');
    std::vector<std::string> seen;
    bench.printer->getPrinterColorTableVersion([&](const auto& values) { seen = values; });
    CHECK(seen == std::vector<std::string>{"A", "B", "C"});
    CHECK(bench.printer->colorTableVersion610() == "A");
    CHECK(bench.printer->colorTableVersion600() == "B");
    CHECK(bench.printer->colorTableVersion() == "C");
    for (const Data& frame : bench.frames()) CHECK(frame.size() == 32);
    for (const char* sum : {"1", "2", "3"}) bench.reply(std::string(sum) + '\r');
    bench.printer->getPrinterColorTableChecksum({});
    CHECK(bench.printer->colorTableChecksum300() == "3");
    CHECK(bench.log.hasLogged("printer color table CHECKSUM 610: 1"));
    CHECK(bench.log.hasLogged("printer color table version 300: 3"));
}

TEST_CASE("a VK28 is queried for four tables of one medium and four of the other") {
    PrinterBench bench;
    bench.openPrinter(0x9001);
    for (int table = 1; table <= 8; ++table) bench.reply(std::to_string(table) + '\r');
    int calls = 0;
    bench.printer->getPrinterColorTableVersion([&](const auto& values) {
        ++calls;
        CHECK(values.size() == 8);
    });
    CHECK(calls == 1);
    const auto frames = bench.frames();
    REQUIRE(frames.size() == 8);
    for (std::size_t index = 0; index < 8; ++index) {
        CHECK(Data(frames[index].begin() + 32, frames[index].end()) == dataFromText(index < 4 ? "0001" : "0003"));
    }
    CHECK(bench.printer->colorTableVersion620() == "1");
    CHECK(bench.printer->colorTableVersion() == "4");
    CHECK(bench.printer->colorTableVersion620HD() == "5");
    CHECK(bench.printer->colorTableVersion300HD() == "8");
    CHECK(bench.log.hasLogged("printer color table version 300HD: 8"));
}

TEST_CASE("a missing reply for a table is shown as NULL, and the table is still listed") {
    PrinterBench bench;
    bench.openPrinter(0x8B01);
    bench.reply("A\r");
    std::vector<std::string> seen;
    bench.printer->getPrinterColorTableVersion([&](const auto& values) { seen = values; });
    CHECK(seen == std::vector<std::string>{"A", "NULL", "NULL"});
}

TEST_CASE("an unknown model is queried for no table") {
    PrinterBench bench;
    bench.openPrinter(0x1234);
    int calls = 0;
    bench.printer->getPrinterColorTableVersion([&](const auto&) { ++calls; });
    CHECK(bench.frames().empty());
    CHECK(calls == 0);
    CHECK(bench.printer->image() == std::nullopt);
}

TEST_CASE("a counter is reset by its letter, and another letter sends no command") {
    PrinterBench bench;
    bench.inlinePrinter()->resetCounterA();
    bench.printer->resetCounterB();
    bench.printer->resetCounterM();
    bench.printer->resetCounter('C');
    const auto frames = bench.frames();
    REQUIRE(frames.size() == 3);
    CHECK(Data(frames[0].begin() + 32, frames[0].end()) == Data{'C', 'A', '\r', 0});
    CHECK(Data(frames[1].begin() + 32, frames[1].end()) == Data{'C', 'B', '\r', 0});
    CHECK(Data(frames[2].begin() + 32, frames[2].end()) == Data{'C', 'M', '\r', 0});
    CHECK(bench.handle->count("ReadPipeTO") == 0);
}

TEST_CASE("a printer in its loader is queried only for its status") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.reply("FU00001\r");
    bench.printer->getDeviceCustomInfo();
    CHECK(bench.commands() == std::vector<std::string>{"STATUS"});
    CHECK(bench.printer->printerStatus() == "Firmware Update Mode");
}

TEST_CASE("all values are queried in a fixed order, and the interface is closed afterwards") {
    PrinterBench bench;
    bench.inlinePrinter(0x8B01);
    for (const char* body : {"00000\r", "VK26 01.51\r", "CL0000042\r", "0110\r", "0110\r", "0110\r", "1F2E\r", "1F2E\r",
                             "1F2E\r", "000001\r", "0001\r"}) {
        bench.reply(body);
    }
    bench.printer->getDeviceCustomInfo();
    CHECK(bench.commands() == std::vector<std::string>{"STATUS", "INFO  FVER", "MNT_RDCOUNTER_LIFE",
                                                       "TBL_RDCWD610_Version", "TBL_RDCWD600_Version",
                                                       "TBL_RDCWD300_Version", "TBL_RDCWD610_Checksum",
                                                       "TBL_RDCWD600_Checksum", "TBL_RDCWD300_Checksum",
                                                       "INFO  SERIAL_NUMBER", "MNT_RDUSB_ISERI_SET"});
    CHECK(bench.printer->state() == kTBPrinterClosed);
}

// ---- USB serial number ----------------------------------------------------------------------------------------------

TEST_CASE("the USB serial setting is supported by the models that have it") {
    const std::pair<std::uint16_t, bool> rows[] = {{3, false},     {4, false},     {8, false},
                                                   {0x8B01, true}, {0x9001, true}, {0x1234, false}};
    for (const auto& [product, supported] : rows) {
        PrinterBench bench;
        CHECK(bench.inlinePrinter(product)->hasISerialSupport() == supported);
        CHECK(bench.printer->usbISerialString() == (supported ? "Disabled" : "Unavailable"));
    }
}

TEST_CASE("a VK-RZ7 has the USB serial setting from version 2.04 on") {
    for (const auto& [version, supported] :
         {std::pair{"VK-RZ7 02.03", false}, std::pair{"VK-RZ7 02.04", true}, std::pair{"VK-RZ7 new", false}}) {
        PrinterBench bench;
        bench.inlinePrinter(5)->deviceInfoDict()->set("firmwareVersion", std::string(version));
        CHECK(bench.printer->hasISerialSupport() == supported);
        bench.printer->getUSB_ISerial();
        CHECK(bench.frames().size() == (supported ? 1 : 0));
    }
}

TEST_CASE("the USB serial setting is read as a number and shown as text") {
    PrinterBench bench;
    bench.inlinePrinter(0x8B01);
    auto notices = std::make_shared<Notices>();
    bench.printer->addObserver(notices, KeyValueObservable::kEveryKey, nullptr);
    bench.reply("0001\r");
    bench.printer->getUSB_ISerial();
    CHECK(bench.printer->infoText(HOLVEN_ZUL_USB_ISerialisSet) == "1");
    CHECK(bench.printer->usbISerialString() == "Enabled");
    CHECK(notices->count["usbISerialString"] == 1);
    CHECK(bench.log.hasLogged("usbISerial value: 1"));
    CHECK(bench.commands() == std::vector<std::string>{"MNT_RDUSB_ISERI_SET"}); // reading never causes a write
}

TEST_CASE("a missing reply keeps the USB serial setting") {
    PrinterBench bench;
    bench.inlinePrinter(0x8B01)->deviceInfoDict()->set(HOLVEN_ZUL_USB_ISerialisSet, std::string("1"));
    bench.printer->getUSB_ISerial();
    CHECK(bench.printer->usbISerialString() == "Enabled");
}

TEST_CASE("the USB serial setting is written and read back, and not written to a VK14") {
    PrinterBench bench;
    bench.inlinePrinter(0x9001);
    bench.reply("1\r");
    bench.printer->setUSB_ISerial(true);
    bench.reply("0\r");
    bench.printer->setUSB_ISerial(false);
    const auto frames = bench.frames();
    REQUIRE(frames.size() == 4);
    CHECK(Data(frames[0].begin() + 32, frames[0].end()) == Data{'0', '1', '\r', 0});
    CHECK(Data(frames[2].begin() + 32, frames[2].end()) == Data{'0', '0', '\r', 0});
    PrinterBench other;
    other.inlinePrinter(3)->setUSB_ISerial(true);
    CHECK(other.frames().empty());
}

TEST_CASE("the queue clean-up removes the queues of the model whose name ends in a question mark, and only those") {
    const TemporaryFolder folder;
    const auto script = [&](const std::string& name, const std::string& body) {
        const auto file = folder.write(name, "#!/bin/sh\n" + body);
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    };
    script("lpstat", "[ \"$1\" = -v ] || exit 1\n"
                     "echo 'device for Lab_1: usb://ZUL/QP-VK26?serial=1'\n"
                     "echo 'device for Lab_2: usb://ZUL/QP-VK26?location=2'\n"
                     "echo 'device for Other: usb://ZUL/QP-VK14?serial=3'\n"
                     "echo 'device for Plain: usb://ZUL/QP-VK26'\n");
    script("lpadmin", "echo \"$@\" >> '" + (folder / "removed").string() + "'\n");
    const std::string path = std::getenv("PATH");
    ::setenv("PATH", (folder.path.string() + ":" + path).c_str(), /*overwrite=*/1);
    PrinterBench bench;
    bench.inlinePrinter(kProductVK26)->deleteExistingPrinterQueues();
    bench.settle();
    ::setenv("PATH", path.c_str(), /*overwrite=*/1);
    CHECK(TemporaryFolder::read(folder / "removed") == "-x Lab_1\n-x Lab_2\n");
}

TEST_CASE("setting the current value sends no command") {
    PrinterBench bench;
    bench.inlinePrinter(0x8B01)->setUsbISerial(false);
    CHECK(bench.frames().empty());
}
