// Status texts and the status query.
#include "PrinterBench.h"

using namespace zul;
using namespace zul::test;

TEST_CASE("every status code has its text") {
    const std::pair<std::optional<std::string>, const char*> rows[] = {{"FU00001", "Firmware Update Mode"},
                                                                       {std::nullopt, "<NULL>"},
                                                                       {"0", "Idle"},
                                                                       {"1", "Printing"},
                                                                       {"500", "Head cool down cycle"},
                                                                       {"510", "Motor cool down cycle"},
                                                                       {"900", "Sleeping (standby mode)"},
                                                                       {"1000", "Cover Open"},
                                                                       {"1010", "Scrap Box Missing"},
                                                                       {"1100", "Paper End"},
                                                                       {"1200", "Ribbon End"},
                                                                       {"1300", "Paper Jam"},
                                                                       {"1400", "Ribbon Error"},
                                                                       {"1500", "Wrong Paper"},
                                                                       {"1600", "Bad Data"},
                                                                       {"2000", "Head Voltage Error"},
                                                                       {"2100", "Head Position Error"},
                                                                       {"2200", "Power supply Error"},
                                                                       {"2300", "Cutter Error"},
                                                                       {"2400", "Pinch Roller Error"},
                                                                       {"2500", "Head Temp High Error"},
                                                                       {"2600", "Media Temp Error"},
                                                                       {"2610", "Motor Temp Error"},
                                                                       {"2700", "Ribbon Tension Error"},
                                                                       {"2800", "RFID Module Error"},
                                                                       {"3000", "System Fail Error"}};
    CHECK(std::size(rows) == 26);
    for (const auto& [raw, text] : rows) CHECK(TBUSBPrinterZUL::stringForVKStatusString(raw) == text);
}

TEST_CASE("the loader's mark is recognised only as the whole text") {
    CHECK(TBUSBPrinterZUL::stringForVKStatusString("FU00002") == "Idle");
    CHECK(TBUSBPrinterZUL::stringForVKStatusString("FU00001 ") == "Idle");
}

TEST_CASE("leading zeros and trailing text do not change a status") {
    CHECK(TBUSBPrinterZUL::stringForVKStatusString("01000") == "Cover Open");
    CHECK(TBUSBPrinterZUL::stringForVKStatusString("01000 now") == "Cover Open");
    CHECK(TBUSBPrinterZUL::stringForVKStatusString("") == "Idle");
}

TEST_CASE("a number between the known ones is an unknown status") {
    for (const char* raw : {"2", "1700", "2611", "2900", "3001", "-1"}) {
        CHECK(TBUSBPrinterZUL::stringForVKStatusString(raw) == "Unknown Status");
    }
}

TEST_CASE("a status query stores the text and passes the raw status to its completion") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.reply("02610\r");
    std::optional<std::string> raw;
    bench.printer->getPrinterStatus([&](const auto& status) { raw = status; });
    CHECK(raw == "02610");
    CHECK(bench.printer->printerStatus() == "Motor Temp Error");
    CHECK(bench.commands() == std::vector<std::string>{"STATUS"});
}

TEST_CASE("a status query without a reply keeps the earlier text and calls no completion") {
    PrinterBench bench;
    bench.inlinePrinter()->setPrinterStatus("Printing");
    int calls = 0;
    bench.printer->getPrinterStatus([&](const auto&) { ++calls; });
    CHECK(calls == 0);
    CHECK(bench.printer->printerStatus() == "Printing");
    CHECK(bench.log.has("Received a null printer status reply ... will try again later"));
}

TEST_CASE("a status query of a printer that cannot be opened writes no log line") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.handle->setAnswer("USBInterfaceOpenSeize", kIOReturnNotResponding);
    int calls = 0;
    bench.printer->getPrinterStatus([&](const auto&) { ++calls; });
    CHECK(calls == 0);
    CHECK(bench.frames().empty());
}

TEST_CASE("an empty status body is a status like any other and has the text Idle") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.handle->enqueueRead(dataFromText("00000000"));
    std::optional<std::string> raw;
    bench.printer->getPrinterStatus([&](const auto& status) { raw = status; });
    CHECK(raw == "");
    CHECK(bench.printer->printerStatus() == "Idle");
}
