// The loader: which images it accepts, and the restarts into it and out of it.
#include "unit/virtual_printer/Wire.h"

#include "virtual_printer/FirmwareImage.h"

namespace zul {

using std::chrono::milliseconds;

namespace {

VirtualEffects sendImage(VirtualPrinter& printer, const Data& bytes) {
    return printer.receive(frame("FW_UPDFLASH_PROGRAM", bytes));
}

VirtualPrinter loader(const std::string& settings = {}) {
    return VirtualPrinter(described("VK14,mode=loader" + settings));
}

/// Whether a printer in its loader runs this image after its restart.
bool runs(const Data& bytes) {
    VirtualPrinter printer = loader();
    const VirtualEffects effects = sendImage(printer, bytes);
    REQUIRE(effects.departure);
    CHECK(effects.departure->comesBack);
    printer.attach();
    return !printer.isLoader();
}

} // namespace

// ---- images ---------------------------------------------------------------------------------------------------------

TEST_CASE("the version of an image is the text of its header record") {
    CHECK(versionOfFirmwareImage(image("VK14 01.61")) == "VK14 01.61");
    CHECK(versionOfFirmwareImage(image("VK18DUP 1.40PRN")) == "VK18DUP 1.40PRN");
}

TEST_CASE("an image may be padded with zero bytes and have any line ends") {
    CHECK(versionOfFirmwareImage(joined(image("A 1"), Data(3, 0))) == "A 1");
    std::string text = imageText("A 1");
    std::erase(text, '\r');
    CHECK(versionOfFirmwareImage(dataFromText(text)) == "A 1");
    text.pop_back();
    CHECK(versionOfFirmwareImage(dataFromText(text)) == "A 1");
}

TEST_CASE("an image with any one character changed is refused") {
    const std::string text = imageText("A 1");
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\r' || text[at] == '\n') continue;
        if (at > 0 && text[at - 1] == 'S') continue; // the type of a record is not part of its checksum
        CAPTURE(at);
        std::string damaged = text;
        damaged[at] = damaged[at] == '7' ? '8' : '7';
        CHECK(!versionOfFirmwareImage(dataFromText(damaged)));
    }
}

TEST_CASE("a truncated image is refused") {
    const std::string text = imageText("A 1");
    const std::size_t lastRecord = text.rfind('S');
    for (std::size_t length = 0; length <= lastRecord + 9; ++length) {
        CAPTURE(length);
        CHECK(!versionOfFirmwareImage(dataFromText(text.substr(0, length))));
    }
}

TEST_CASE("an image is refused without a header, without an end, with a record missing or with one after the end") {
    const std::string name = record('0', joined({0, 0}, dataFromText("A 1"))) + '\n';
    const std::string contents = record('1', {0, 0, 1}) + '\n';
    const std::string end = record('9', {0, 0}) + '\n';
    CHECK(versionOfFirmwareImage(dataFromText(name + contents + end)) == "A 1");
    CHECK(!versionOfFirmwareImage(dataFromText(contents + end)));
    CHECK(!versionOfFirmwareImage(dataFromText(name + contents)));
    CHECK(!versionOfFirmwareImage(dataFromText(name + contents + end + contents)));
    CHECK(!versionOfFirmwareImage(dataFromText(name + contents + record('5', {0, 2}) + '\n' + end)));
    CHECK(!versionOfFirmwareImage(dataFromText(name + record('X', {0, 0, 1}) + '\n' + end)));
    CHECK(!versionOfFirmwareImage(dataFromText("\n\n")));
    CHECK(!versionOfFirmwareImage({}));
}

// ---- restarts -------------------------------------------------------------------------------------------------------

TEST_CASE("the command for the loader ends with a restart into it") {
    VirtualPrinter printer(described("VK14,restart=1234"));
    const VirtualEffects effects = printer.receive(frame("FW_UPDFLASH_REWRITE"));
    CHECK(effects.transfers.empty());
    REQUIRE(effects.departure);
    CHECK(effects.departure->after > milliseconds(0));
    CHECK(effects.departure->away == milliseconds(1234));
    CHECK(!printer.isLoader());
    printer.attach();
    CHECK(printer.isLoader());
}

TEST_CASE("a loader replies only to STATUS") {
    VirtualPrinter printer = loader();
    CHECK(answers(printer, "STATUS") == Texts{"00000008", "FU00001\r"});
    for (const char* command : {"INFO  FVER", "INFO  SERIAL_NUMBER", "TBL_RDVersion", "MNT_RDCOUNTER_LIFE", "TBL_CL",
                                "FW_UPDFLASH_REWRITE"}) {
        CAPTURE(command);
        const VirtualEffects effects = printer.receive(frame(command));
        CHECK(effects.transfers.empty());
        CHECK(!effects.departure);
    }
}

TEST_CASE("a loader accepts a frame with a large payload and replies to the one after it") {
    VirtualPrinter printer = loader();
    const Data bytes = joined(frame("TBL_WTCTRLD_UPDATE_CW", Data(50000, 0x1B)), frame("STATUS"));
    CHECK(textsOf(printer.receive(bytes)) == Texts{"00000008", "FU00001\r"});
}

TEST_CASE("a loader that received a valid image restarts into its version") {
    VirtualPrinter printer = loader(",program=700,restart=900");
    const VirtualEffects effects = sendImage(printer, image("VK14 01.61"));
    REQUIRE(effects.departure);
    CHECK(effects.departure->after == milliseconds(700));
    CHECK(effects.departure->away == milliseconds(900));
    printer.attach();
    CHECK(!printer.isLoader());
    CHECK(body(printer, "INFO  FVER") == "VK14 01.61");
    CHECK(!printer.departureAfterAttach());
}

TEST_CASE("the loader still replies to a STATUS after the image") {
    VirtualPrinter printer = loader();
    sendImage(printer, image("VK14 01.61"));
    CHECK(answers(printer, "STATUS") == Texts{"00000008", "FU00001\r"});
    printer.attach();
    CHECK(printer.firmware() == "VK14 01.61");
}

TEST_CASE("a loader that received a damaged image restarts and is still the loader") {
    CHECK(runs(image("VK14 01.61")));
    Data damaged = image("VK14 01.61");
    damaged[20] ^= 1;
    CHECK(!runs(damaged));
    CHECK(!runs({}));
}

TEST_CASE("a loader never restarts during the write that completes its image") {
    VirtualPrinter printer = loader(",program=0");
    const VirtualEffects effects = sendImage(printer, image("VK14 01.61"));
    REQUIRE(effects.departure);
    CHECK(effects.departure->after > milliseconds(0));
}

TEST_CASE("an image in normal mode has no effect") {
    VirtualPrinter printer(described("VK14"));
    const VirtualEffects effects = sendImage(printer, image("VK14 01.61"));
    CHECK(!effects.departure);
    printer.attach();
    CHECK(printer.firmware() == "VK14 01.60");
}

TEST_CASE("new firmware can begin with statuses of its own") {
    VirtualPrinter printer = loader(",status=00001,after-update=00510:00000");
    sendImage(printer, image("VK14 01.61"));
    printer.attach();
    CHECK(body(printer, "STATUS") == "00510");
    CHECK(body(printer, "STATUS") == "00000");
    CHECK(body(printer, "STATUS") == "00000");
}

TEST_CASE("a VK-RZ7 returns with its intermediate version and restarts by itself into the final one") {
    VirtualPrinter printer(described("VK-RZ7,mode=loader"));
    sendImage(printer, image("VK-RZ7 02.06"));
    printer.attach();
    CHECK(body(printer, "INFO  FVER") == "RZ7_ALLFWU_2.05");
    const auto departure = printer.departureAfterAttach();
    REQUIRE(departure);
    CHECK(departure->comesBack);
    CHECK(departure->after > milliseconds(0));
    printer.attach();
    CHECK(body(printer, "INFO  FVER") == "VK-RZ7 02.06");
    CHECK(!printer.departureAfterAttach());
}

TEST_CASE("tables, counters and settings survive an update") {
    VirtualPrinter printer(described("VK26"));
    answers(printer, "MNT_WTCOUNTER_CLR", dataFromText(std::string("CM\r\0", 4)));
    answers(printer, "FW_UPDFLASH_REWRITE");
    printer.attach();
    sendImage(printer, image("VK26 01.52"));
    printer.attach();
    CHECK(body(printer, "MNT_RDCOUNTER_M") == "CM0000000");
    CHECK(body(printer, "TBL_RDCWD600_Version") == "0110");
    CHECK(body(printer, "INFO  FVER") == "VK26 01.52");
}

} // namespace zul
