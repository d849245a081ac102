// Frames out and replies in.
#include "PrinterBench.h"

#include "protocol/CommandFrame.h"

#include <algorithm>

using namespace zul;
using namespace zul::test;

namespace {

struct Row {
    std::uint32_t code;
    const char* text; // null: no command
    int payload;      // -1: of any length
};

// Repeated here on purpose: the table in the program is compared with this one.
const Row kRows[] = {
    {0, "STATUS", 0},
    {1, "INFO  FVER", 0},
    {2, "INFO  SERIAL_NUMBER", 0},
    {3, nullptr, 0},
    {4, "INFO  MEDIA", 0},
    {5, nullptr, 0},
    {6, nullptr, 0},
    {7, "INFO  FREE_PBUFFER", 0},
    {8, "INFO  MQTY", 0},
    {9, nullptr, 0},
    {10, nullptr, 0},
    {11, "IMAGE MULTICUT", 8},
    {12, "CNTRL OVERCOAT", 8},
    {13, "IMAGE YPLANE", -1},
    {14, "IMAGE MPLANE", -1},
    {15, "IMAGE CPLANE", -1},
    {16, "CNTRL CUTTER", 8},
    {17, "CNTRL START", 0},
    {18, nullptr, 0},
    {19, "TBL_CL", 0},
    {20, "TBL_WTCTRLD_UPDATE_CW", -1},
    {21, "TBL_RDVersion", 0},
    {22, "TBL_WTVersion", -1},
    {23, "MNT_RDCTRLD_CHKSUM", 0},
    {24, "TBL_RDCWD300_Version", -1},
    {25, "TBL_RDCWD600_Version", -1},
    {26, "TBL_RDCWD610_Version", -1},
    {27, "TBL_RDCWD620_Version", -1},
    {28, "TBL_RDCWD300_Checksum", -1},
    {29, "TBL_RDCWD600_Checksum", -1},
    {30, "TBL_RDCWD610_Checksum", -1},
    {31, "TBL_RDCWD620_Checksum", -1},
    {32, "MNT_RDCOUNTER_LIFE", 0},
    {33, "MNT_RDCOUNTER_A", 0},
    {34, "MNT_RDCOUNTER_B", 0},
    {35, "MNT_WTCOUNTER_CLR", 4},
    {36, "MNT_RDCOUNTER_P", 0},
    {37, "MNT_WTCOUNTERP_SET", 8},
    {38, "MNT_RDCOUNTER_MATTE", 0},
    {39, "MNT_RDCOUNTER_M", 0},
    {40, "FW_UPDFLASH_REWRITE", 0},
    {41, "FW_UPDFLASH_PROGRAM", -1},
    {42, "MNT_WTUSB_ISERI_SET", 4},
    {43, "MNT_RDUSB_ISERI_SET", 0},
    {44, nullptr, 0},
    {1000, nullptr, 0},
};

std::string asText(const Data& data) {
    return {data.begin(), data.end()};
}

// A printer that keeps what its error sink is given.
struct Listener final : TBUSBPrinterZUL {
    using TBUSBPrinterZUL::TBUSBPrinterZUL;
    void errorWithString(const std::string& message, int code) override {
        errors.push_back(message + " " + std::to_string(code));
    }
    std::vector<std::string> errors;
};

// With an open interface and without a queue.
std::shared_ptr<Listener> openListener(PrinterBench& bench) {
    bench.handle->product = 3;
    bench.handle->answerByDefault();
    auto printer = std::make_shared<Listener>(bench.environment);
    printer->initWithInterfaceInterface(bench.handle, 7);
    REQUIRE(printer->openInterface() == kIOReturnSuccess);
    bench.handle->clearJournal();
    return printer;
}

} // namespace

TEST_CASE("every command number has its text, and reserved ones have none") {
    int named = 0;
    for (const Row& row : kRows) {
        CAPTURE(row.code);
        CHECK(TBUSBPrinterZUL::stringForCommandCode(row.code) ==
              (row.text ? std::optional<std::string>(row.text) : std::nullopt));
        if (row.text) ++named;
    }
    CHECK(named == 38);
}

TEST_CASE("every command announces its own payload size") {
    for (const Row& row : kRows) {
        CAPTURE(row.code);
        for (const std::size_t given : {0U, 5U, 4000U}) {
            CHECK(payloadSizeForCommand(row.code, given) ==
                  (row.payload < 0 ? given : static_cast<std::size_t>(row.payload)));
        }
    }
}

TEST_CASE("the status command is escape, P, its text and 24 blanks") {
    CHECK(asText(commandFrame(0, nullptr)) == "\x1BPSTATUS" + std::string(24, ' '));
}

TEST_CASE("the USB serial command is 36 bytes with 00000004 at offset 24") {
    const Data payload = {'0', '1', '\r', 0};
    const Data frame = commandFrame(42, &payload);
    REQUIRE(frame.size() == 36);
    CHECK(asText(frame).substr(24, 8) == "00000004");
    CHECK(Data(frame.begin() + 32, frame.end()) == payload);
}

TEST_CASE("a cutter command with seven bytes announces eight and contains none of them") {
    const Data payload(7, 'x');
    const Data frame = commandFrame(16, &payload);
    REQUIRE(frame.size() == 40);
    CHECK(asText(frame).substr(24) == "00000008" + std::string(8, ' '));
    const Data exact(8, 'x');
    CHECK(asText(commandFrame(16, &exact)).substr(32) == "xxxxxxxx");
}

TEST_CASE("a fixed-size command never copies more than its size, and a short payload is filled with blanks") {
    const Data longer(20, 'x');
    CHECK(asText(commandFrame(35, &longer)).substr(32) == "xxxx");
    CHECK(asText(commandFrame(37, &longer)).substr(32) == "xxxxxxxx");
    const Data shorter(2, 'x');
    CHECK(asText(commandFrame(35, &shorter)).substr(32) == "xx  ");
    CHECK(asText(commandFrame(35, nullptr)).substr(32) == "    ");
}

TEST_CASE("a payload for a command without one is ignored") {
    const Data payload(9, 'x');
    CHECK(commandFrame(40, &payload).size() == 32);
}

TEST_CASE("a frame reports which of its parts do not fit") {
    using Errors = std::vector<int>;
    CHECK(commandFrameErrors(kCommandProgramFlash, 99'999'999) == Errors{});
    CHECK(commandFrameErrors(kCommandProgramFlash, 100'000'000) == Errors{494});
    CHECK(commandFrameErrors(kCommandStatus, 100'000'000) == Errors{}); // its frame has no payload
    CHECK(commandFrameErrors(kCommandCounterClear, 100'000'000) == Errors{});
    CHECK(commandFrameErrors(3, 100'000'000) == Errors{486});
}

TEST_CASE("a part that does not fit into a frame goes to the error sink, and the frame is sent") {
    struct Listener final : TBUSBPrinterZUL {
        using TBUSBPrinterZUL::TBUSBPrinterZUL;
        void errorWithString(const std::string& message, int code) override {
            errors.push_back(message + " " + std::to_string(code));
        }
        std::vector<std::string> errors;
    };
    PrinterBench bench;
    bench.handle->product = 3;
    bench.handle->answerByDefault();
    const auto printer = std::make_shared<Listener>(bench.environment);
    printer->initWithInterfaceInterface(bench.handle, 7);
    REQUIRE(printer->openInterface() == kIOReturnSuccess);
    bench.handle->clearJournal();
    printer->sendPrinterCommand(3, nullptr);
    printer->sendPrinterCommand(kCommandStatus, nullptr);
    CHECK(printer->errors == std::vector<std::string>{"Internal error L486 0"});
    CHECK(bench.frames().size() == 2);
}

TEST_CASE("a command that the bus does not take goes to the error sink") {
    PrinterBench bench;
    const auto printer = openListener(bench);
    bench.handle->setAnswer("WritePipeTO", kIOUSBPipeStalled);
    printer->sendPrinterCommand(kCommandStatus, nullptr);
    CHECK(printer->errors == std::vector<std::string>{"Communication error 0"});
}

TEST_CASE("a reply that is announced with more than 4096 bytes goes to the error sink") {
    PrinterBench bench;
    const auto printer = openListener(bench);
    bench.handle->enqueueRead(dataFromText("00004097"));
    CHECK(printer->printerReply() == std::nullopt);
    CHECK(printer->errors == std::vector<std::string>{"Internal error L2112 0"});
}

TEST_CASE("a payload whose size takes nine digits is not announced with eight of them") {
    CHECK(payloadSizeField(0) == "        ");
    CHECK(payloadSizeField(8) == "00000008");
    CHECK(payloadSizeField(99'999'999) == "99999999");
    CHECK(payloadSizeField(100'000'000) == "        ");
}

TEST_CASE("a reserved number is sent as an empty command and reported to no observer") {
    PrinterBench bench;
    bench.openPrinter()->sendPrinterCommand(3, nullptr);
    REQUIRE(bench.frames().size() == 1);
    CHECK(asText(bench.frames()[0]) == "\x1BP" + std::string(30, ' '));
    CHECK(bench.alerts.shown.empty());
}

TEST_CASE("a command is one write of the whole frame with both time-outs at five seconds") {
    PrinterBench bench;
    const Data image(100000, 'S');
    bench.openPrinter()->sendPrinterCommand(41, &image);
    const Journal journal = bench.handle->journal();
    REQUIRE(journal.size() == 1);
    CHECK(journal[0].call == "WritePipeTO");
    CHECK(journal[0].pipe == 1);
    CHECK(journal[0].size == 100032);
    CHECK(journal[0].noDataTimeout == 5000);
    CHECK(journal[0].completionTimeout == 5000);
    CHECK(bench.log.has("sending printer command FW_UPDFLASH_PROGRAM with payload size 100000"));
    CHECK(bench.log.has("interface with 100032 byte payload"));
}

TEST_CASE("a write that fails is logged with its code and name, and not repeated") {
    PrinterBench bench;
    bench.openPrinter();
    bench.handle->setAnswer("WritePipeTO", kIOUSBPipeStalled);
    bench.printer->sendPrinterCommand(0, nullptr);
    CHECK(bench.frames().size() == 1);
    CHECK(bench.log.has("ERROR: writeToInterfaceWithData: [e000404f] (kIOUSBPipeStalled)"));
    CHECK(bench.printer->writeStatus() == kIOUSBPipeStalled);
}

TEST_CASE("a reply is two reads, of eight bytes and of what they announce, cut at the carriage return") {
    PrinterBench bench;
    bench.openPrinter();
    bench.reply("VK14 01.60\rrest");
    const auto reply = bench.printer->printerReply();
    REQUIRE(reply);
    Data expected = dataFromText("VK14 01.60");
    expected.push_back(0);
    CHECK(*reply == expected);
    const Journal journal = bench.handle->journal();
    REQUIRE(journal.size() == 2);
    CHECK(journal[0].size == 8);
    CHECK(journal[1].size == 15);
    CHECK(journal[1].completionTimeout == 5000);
    CHECK(bench.log.has("reading backchannel for 8 bytes on "));
}

TEST_CASE("a reply without a carriage return keeps the buffer's length and ends with NUL after its bytes") {
    PrinterBench bench;
    bench.openPrinter();
    bench.reply("VK14");
    auto reply = bench.printer->printerReply();
    REQUIRE(reply);
    CHECK(reply->size() == 256);
    CHECK(stringFromNulTerminatedUTF8(*reply) == "VK14");
    bench.reply(std::string(300, 'x'));
    reply = bench.printer->printerReply();
    REQUIRE(reply);
    CHECK(reply->size() == 301);
    CHECK(reply->back() == 0);
}

TEST_CASE("a reply of length 0 is a buffer whose first byte is NUL, without a second read") {
    PrinterBench bench;
    bench.openPrinter();
    bench.handle->enqueueRead(dataFromText("00000000"));
    const auto reply = bench.printer->printerReply();
    REQUIRE(reply);
    CHECK(reply->size() == 256);
    CHECK(reply->front() == 0);
    CHECK(bench.handle->count("ReadPipeTO") == 1);
}

TEST_CASE("4096 announced bytes are read and 4097 are not") {
    PrinterBench bench;
    bench.openPrinter();
    bench.reply(std::string(4095, 'x') + '\r');
    CHECK(bench.printer->printerReply());
    bench.handle->clearJournal();
    bench.handle->enqueueRead(dataFromText("00004097"));
    CHECK(bench.printer->printerReply() == std::nullopt);
    CHECK(bench.handle->count("ReadPipeTO") == 1);
    bench.handle->enqueueRead(dataFromText("-0000001"));
    CHECK(bench.printer->printerReply() == std::nullopt);
}

TEST_CASE("a failed read is logged and yields no reply, for the header and for the body") {
    PrinterBench bench;
    bench.openPrinter();
    bench.handle->enqueueRead({}, kIOUSBTransactionTimeout);
    CHECK(bench.printer->printerReply() == std::nullopt);
    CHECK(bench.log.has("bad read (kIOUSBTransactionTimeout) on backchannel of "));
    bench.handle->enqueueRead(dataFromText("00000005"));
    bench.handle->enqueueRead({}, kIOReturnNotResponding);
    CHECK(bench.printer->printerReply() == std::nullopt);
    CHECK(bench.log.has("bad read (kIOReturnNotResponding) on backchannel of "));
}
