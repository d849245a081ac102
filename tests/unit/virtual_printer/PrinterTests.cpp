// The protocol engine: frames in, replies out, and the effects of commands.
#include "unit/virtual_printer/Wire.h"

#include "archive/ProductTable.h"
#include "virtual_printer/VirtualModels.h"

namespace zul {

// ---- replies --------------------------------------------------------------------------------------------------------

TEST_CASE("an idle printer replies to STATUS with a header and a body as two transfers") {
    VirtualPrinter printer(described("VK14"));
    CHECK(answers(printer, "STATUS") == Texts{"00000006", "00000\r"});
}

TEST_CASE("a reply's header includes the carriage return of its body") {
    VirtualPrinter printer(described("VK14"));
    CHECK(answers(printer, "INFO  FVER") == Texts{"00000011", "VK14 01.60\r"});
    CHECK(answers(printer, "MNT_RDCOUNTER_LIFE") == Texts{"00000010", "CL0000042\r"});
}

TEST_CASE("a VK14 replies to every query of the program") {
    VirtualPrinter printer(described("VK14,serial=AB12,lifetime=7"));
    CHECK(body(printer, "INFO  SERIAL_NUMBER") == "AB12");
    CHECK(body(printer, "MNT_RDCOUNTER_LIFE") == "CL0000007");
    CHECK(body(printer, "TBL_RDVersion") == "0160");
    for (const char* command :
         {"INFO  MEDIA", "INFO  FREE_PBUFFER", "INFO  MQTY", "MNT_RDCTRLD_CHKSUM", "MNT_RDCOUNTER_A", "MNT_RDCOUNTER_B",
          "MNT_RDCOUNTER_M", "MNT_RDCOUNTER_P", "MNT_RDCOUNTER_MATTE", "MNT_RDUSB_ISERI_SET"}) {
        CAPTURE(command);
        CHECK(!body(printer, command).empty());
    }
}

TEST_CASE("commands that write, control or print are accepted without a reply") {
    VirtualPrinter printer(described("VK14"));
    const Data eight(8, '0');
    for (const char* command :
         {"TBL_CL", "TBL_WTVersion", "TBL_WTCTRLD_UPDATE_CW", "MNT_WTCOUNTER_CLR", "MNT_WTCOUNTERP_SET",
          "MNT_WTUSB_ISERI_SET", "FW_UPDFLASH_PROGRAM", "CNTRL OVERCOAT", "CNTRL CUTTER", "IMAGE YPLANE"}) {
        CAPTURE(command);
        const VirtualEffects effects = printer.receive(frame(command, eight));
        CHECK(effects.transfers.empty());
        CHECK(!effects.departure);
    }
    CHECK(body(printer, "STATUS") == "00000");
}

TEST_CASE("statuses follow one another and the last one is repeated") {
    VirtualPrinter printer(described("VK14,status=01000:00900:00000"));
    Texts statuses;
    for (int question = 0; question < 5; ++question) statuses.push_back(body(printer, "STATUS"));
    CHECK(statuses == Texts{"01000", "00900", "00000", "00000", "00000"});
}

// ---- frames ---------------------------------------------------------------------------------------------------------

TEST_CASE("a frame is recognised however its bytes are split") {
    const Data bytes = frame("MNT_WTCOUNTER_CLR", dataFromText(std::string("CA\r\0", 4)));
    for (std::size_t at = 1; at < bytes.size(); ++at) {
        CAPTURE(at);
        std::vector<std::string> seen;
        VirtualPrinter printer(described("VK14"), [&](const VirtualCommand& command) { seen.push_back(command.text); });
        printer.receive({bytes.data(), at});
        CHECK(seen.empty());
        printer.receive({bytes.data() + at, bytes.size() - at});
        CHECK(seen == Texts{"MNT_WTCOUNTER_CLR"});
        CHECK(printer.counter('A') == 0);
    }
}

TEST_CASE("joined frames are answered one after another") {
    VirtualPrinter printer(described("VK14"));
    const Data bytes = joined(frame("TBL_WTVersion", Data(4, 'x')), joined(frame("STATUS"), frame("INFO  FVER")));
    CHECK(textsOf(printer.receive(bytes)) == Texts{"00000006", "00000\r", "00000011", "VK14 01.60\r"});
}

TEST_CASE("the printer knows how many bytes the current frame still needs") {
    VirtualPrinter printer(described("VK14"));
    CHECK(printer.bytesWanted() == 32);
    const Data bytes = frame("TBL_WTVersion", Data(20, 'x'));
    printer.receive({bytes.data(), 10});
    CHECK(printer.bytesWanted() == 22);
    printer.receive({bytes.data() + 10, 30});
    CHECK(printer.bytesWanted() == 12);
    printer.receive({bytes.data() + 40, 12});
    CHECK(printer.bytesWanted() == 32);
}

TEST_CASE("a command is reported with its text, its payload and the bytes of its header") {
    std::vector<VirtualCommand> seen;
    VirtualPrinter printer(described("VK14"), [&](const VirtualCommand& command) { seen.push_back(command); });
    printer.receive(frame("TBL_WTVersion", dataFromText("NAME")));
    REQUIRE(seen.size() == 1);
    CHECK(seen[0].text == "TBL_WTVersion");
    CHECK(seen[0].payload == dataFromText("NAME"));
    CHECK(seen[0].header == header("TBL_WTVersion", "00000004"));
}

TEST_CASE("garbage before a frame is skipped, including escapes") {
    for (const char* garbage : {"hello", "\x1B", "\x1B\x1B\x1B", "\x1BX\x1B", "P\x1BQ"}) {
        VirtualPrinter printer(described("VK14"));
        const std::string text = garbage;
        CAPTURE(text);
        CHECK(textsOf(printer.receive(joined(dataFromText(text), frame("STATUS")))) == Texts{"00000006", "00000\r"});
    }
}

TEST_CASE("a frame whose size is not a number is dropped and the next one is answered") {
    for (const char* size : {"-0000001", "0000000x", "????????", "1 000000"}) {
        CAPTURE(size);
        VirtualPrinter printer(described("VK14"));
        CHECK(printer.receive(header("STATUS", size)).transfers.empty());
        CHECK(printer.bytesWanted() == 32);
        CHECK(body(printer, "STATUS") == "00000");
    }
}

TEST_CASE("an unknown command is accepted with its payload and without a reply") {
    VirtualPrinter printer(described("VK14"));
    for (const char* command : {"", "NOTHING", "INFO  NOTHING", "MNT_RDCOUNTER_", "MNT_RDCOUNTER_Z", "TBL_RDCWD"}) {
        CAPTURE(command);
        CHECK(answers(printer, command, Data(5, 0x1B)).empty());
    }
    CHECK(body(printer, "STATUS") == "00000");
}

TEST_CASE("a reset drops an incomplete frame") {
    VirtualPrinter printer(described("VK14"));
    printer.receive(header("TBL_WTCTRLD_UPDATE_CW", "00001000"));
    printer.reset();
    CHECK(body(printer, "STATUS") == "00000");
}

TEST_CASE("random bytes do no harm") {
    VirtualPrinter printer(described("VK14"));
    std::uint32_t state = 1;
    Data noise(100000);
    for (std::uint8_t& byte : noise) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    printer.receive(noise);
    printer.reset();
    CHECK(body(printer, "STATUS") == "00000");
}

// ---- counters and settings ------------------------------------------------------------------------------------------

TEST_CASE("a reset of a counter clears that counter only") {
    VirtualPrinter printer(described("VK14"));
    const std::uint32_t b = printer.counter('B');
    CHECK(answers(printer, "MNT_WTCOUNTER_CLR", dataFromText(std::string("CA\r\0", 4))).empty());
    CHECK(body(printer, "MNT_RDCOUNTER_A") == "CA0000000");
    CHECK(printer.counter('B') == b);
    CHECK(b != 0);
}

TEST_CASE("the lifetime counter cannot be cleared") {
    VirtualPrinter printer(described("VK14"));
    answers(printer, "MNT_WTCOUNTER_CLR", dataFromText(std::string("CL\r\0", 4)));
    CHECK(body(printer, "MNT_RDCOUNTER_LIFE") == "CL0000042");
}

TEST_CASE("counter P can be set") {
    VirtualPrinter printer(described("VK14"));
    answers(printer, "MNT_WTCOUNTERP_SET", dataFromText("0000123\r"));
    CHECK(body(printer, "MNT_RDCOUNTER_P") == "CP0000123");
}

TEST_CASE("the USB serial number setting is read back at once and takes effect with the next attachment") {
    VirtualPrinter printer(described("VK26,serial=777"));
    CHECK(body(printer, "MNT_RDUSB_ISERI_SET") == "0001");
    answers(printer, "MNT_WTUSB_ISERI_SET", dataFromText(std::string("00\r\0", 4)));
    CHECK(body(printer, "MNT_RDUSB_ISERI_SET") == "0000");
    CHECK(printer.serialText() == "777");
    printer.attach();
    CHECK(!printer.serialText());
    answers(printer, "MNT_WTUSB_ISERI_SET", dataFromText(std::string("01\r\0", 4)));
    printer.attach();
    CHECK(printer.serialText() == "777");
}

// ---- tables ---------------------------------------------------------------------------------------------------------

TEST_CASE("tables are reported as cleared, and then as they were written") {
    VirtualPrinter printer(described("VK14"));
    answers(printer, "TBL_CL");
    CHECK(body(printer, "TBL_RDVersion") == "0000");
    CHECK(body(printer, "MNT_RDCTRLD_CHKSUM") == "0000");
    answers(printer, "TBL_WTVersion", dataFromText(std::string("VK14_300_0161.CWD\0\0\0", 20)));
    answers(printer, "TBL_WTCTRLD_UPDATE_CW", {0xFF, 0x01, 0x10});
    CHECK(body(printer, "TBL_RDVersion") == "0161");
    CHECK(body(printer, "MNT_RDCTRLD_CHKSUM") == "0110");
    CHECK(printer.tables().writtenNames() == Texts{"VK14_300_0161.CWD"});
}

TEST_CASE("a table with an invalid name has no effect") {
    VirtualPrinter printer(described("VK14"));
    answers(printer, "TBL_WTVersion", dataFromText("NOTHING"));
    answers(printer, "TBL_WTCTRLD_UPDATE_CW", {1, 2, 3});
    CHECK(body(printer, "TBL_RDVersion") == "0160");
    CHECK(printer.tables().writtenNames().empty());
}

TEST_CASE("a VK26 replies for its tables by number") {
    VirtualPrinter printer(described("VK26"));
    answers(printer, "TBL_WTVersion", dataFromText("VK26_610_0111.CWD"));
    answers(printer, "TBL_WTCTRLD_UPDATE_CW", {5});
    CHECK(body(printer, "TBL_RDCWD610_Version") == "0111");
    CHECK(body(printer, "TBL_RDCWD610_Checksum") == "0005");
    CHECK(body(printer, "TBL_RDCWD600_Version") == "0110");
    CHECK(answers(printer, "TBL_RDVersion").empty());
}

TEST_CASE("a VK28 keeps the tables of both media apart") {
    VirtualPrinter printer(described("VK28"));
    answers(printer, "TBL_CL");
    answers(printer, "TBL_WTVersion", dataFromText("VK28_SD_620_0101.CWD"));
    answers(printer, "TBL_WTCTRLD_UPDATE_CW", {1});
    answers(printer, "TBL_WTVersion", dataFromText("VK28_PP_620_0102.CWD"));
    answers(printer, "TBL_WTCTRLD_UPDATE_CW", {2});
    CHECK(body(printer, "TBL_RDCWD620_Version", "0001") == "0101");
    CHECK(body(printer, "TBL_RDCWD620_Version", "0003") == "0102");
    CHECK(body(printer, "TBL_RDCWD620_Checksum", "0001") == "0001");
    CHECK(body(printer, "TBL_RDCWD620_Checksum", "0003") == "0002");
}

// ---- models ---------------------------------------------------------------------------------------------------------

TEST_CASE("the virtual models are the products that the program knows") {
    CHECK(virtualModels().size() == allProducts().size());
    for (const VirtualModel& model : virtualModels()) {
        CAPTURE(model.name);
        const Product* product = productWithID(model.productID);
        REQUIRE(product != nullptr);
        CHECK(product->model == model.name);
    }
}

TEST_CASE("a printer has its model and serial number in its device ID") {
    VirtualPrinter printer(described("VK14"));
    CHECK(printer.deviceID() == "MFG:Zul Imaging Company;MDL:VK14;SERN:000001;");
    CHECK(printer.vendorID() == 0x2A71);
    CHECK(printer.productID() == 3);
}

} // namespace zul
