// Every model, admitted for the test: its device info, its archive row and its whole update.
#include "Lab.h"

#include <algorithm>
#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

struct ModelCase {
    const char* model;
    std::uint16_t productID;
    const char* previous;
    const char* available;
    std::vector<std::string> tables;
};

const std::vector<ModelCase>& modelCases() {
    static const std::vector<ModelCase> cases = {
        {"VK14", 3, "VK14 01.60", "VK14 01.61", {"VK14_300_0161.CWD", "VK14_600_0161.CWD"}},
        {"VK18", 4, "VK18 01.29", "VK18 01.30", {"VK18_300_0130.CWD", "VK18_600_0130.CWD"}},
        {"VK18DUP", 8, "VK18DUP 1.39PRN", "VK18DUP 1.40PRN", {"VK18_300_0130.CWD", "VK18_600_0130.CWD"}},
        {"VK26", 0x8B01, "VK26 01.51", "VK26 01.52", {"VK26_300_0111.CWD", "VK26_600_0111.CWD", "VK26_610_0111.CWD"}},
        {"VK28",
         0x9001,
         "VK28 01.04",
         "VK28 01.05",
         {"VK28_SD_300_0101.CWD", "VK28_PP_300_0101.CWD", "VK28_SD_600_0101.CWD", "VK28_PP_600_0101.CWD",
          "VK28_SD_610_0101.CWD", "VK28_PP_610_0101.CWD", "VK28_SD_620_0101.CWD", "VK28_PP_620_0101.CWD"}},
    };
    return cases;
}

} // namespace

TEST_CASE("each model is updated to the version of its own archive row, with its own tables in their order") {
    for (const ModelCase& model : modelCases()) {
        CAPTURE(model.model);
        Lab lab;
        lab.environment.admittedProductIDs = {model.productID};
        lab.attach(model.model);
        lab.start();
        lab.update();
        CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
        CHECK(lab.operatorDesk.message() ==
              std::string("Firmware version updated from ") + model.previous + " to " + model.available);
        CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion) == model.available);
        lab.bus.inspect(0,
                        [&](const VirtualPrinter& printer) { CHECK(printer.tables().writtenNames() == model.tables); });
    }
}

TEST_CASE("a VK-RZ7 is not finished with its intermediate version but after one more restart of its own") {
    Lab lab;
    lab.environment.admittedProductIDs = {5};
    lab.attach("VK-RZ7");
    lab.start();
    lab.forgetWire();
    lab.update();
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
    CHECK(lab.operatorDesk.message() == "Firmware version updated from VK-RZ7 02.03 to VK-RZ7 02.06");
    CHECK(lab.logged("printer firmware is currently reported as \"RZ7_ALLFWU_2.05\""));
    CHECK(lab.timesLogged("found a device rebooting after firmware update") == 2);
    const Wire wire = lab.wire();
    CHECK(std::ranges::count(wire, std::string("arrive")) == 3);
    CHECK(std::ranges::count(wire, std::string("TBL_CL")) == 1);
    CHECK(std::ranges::count(wire, std::string("FW_UPDFLASH_PROGRAM")) == 1);
}

TEST_CASE("a VK-RZ7 gets a warning about its media that depends on the version") {
    for (const auto& [firmware, isWarned] : {std::pair{"VK-RZ7 02.03", true}, std::pair{"VK-RZ7 02.04", false}}) {
        CAPTURE(firmware);
        Lab lab;
        lab.environment.admittedProductIDs = {5};
        lab.attach(std::string("VK-RZ7,firmware=") + firmware);
        lab.start();
        lab.printer()->updateFirmware();
        lab.rest();
        const std::string extra = isWarned ? " Please use up all RZ7 media before using this update tool." : "";
        CHECK(lab.operatorDesk.message() ==
              "This update tool is for the ZUL RZ7 printer. It will upgrade the printer to 2.06.\n\nOnce updated, the "
              "RZ7 printer will REQUIRE the use of RZ7HS media packs." +
                  extra + " This process cannot be undone.");
        CHECK(lab.printer()->usbISerialString() == (isWarned ? "Unavailable" : "Enabled"));
    }
}

TEST_CASE("a VK28 is queried for its eight tables, first of one medium and then of the other") {
    Lab lab;
    lab.environment.admittedProductIDs = {0x9001};
    lab.attach("VK28");
    lab.start();
    Wire expected = {"arrive", "STATUS", "INFO  FVER", "MNT_RDCOUNTER_LIFE"};
    for (const char* kind : {"Version", "Checksum"}) {
        for (int medium = 0; medium < 2; ++medium) {
            for (const char* number : {"620", "610", "600", "300"}) {
                expected.push_back(std::string("TBL_RDCWD") + number + "_" + kind);
            }
        }
    }
    expected.push_back("INFO  SERIAL_NUMBER");
    expected.push_back("MNT_RDUSB_ISERI_SET");
    CHECK(lab.wire() == expected);
    std::vector<std::string> payloads;
    for (const auto& entry : lab.journal->entries()) {
        if (entry.command.ends_with("_Version")) payloads.push_back(entry.sha256);
    }
    const std::string sd = sha256Of(dataFromText("0001"));
    const std::string pp = sha256Of(dataFromText("0003"));
    CHECK(payloads == std::vector<std::string>{sd, sd, sd, sd, pp, pp, pp, pp});
    CHECK(lab.infoText(HOLVEN_TBPrinterColorTableVersion) == "0100");
    CHECK(lab.infoText(HOLVEN_TBPrinterColorTableVersion300HD) == "0100");
}

TEST_CASE("a VK26 is queried for three tables without a payload") {
    Lab lab;
    lab.environment.admittedProductIDs = {0x8B01};
    lab.attach("VK26");
    lab.start();
    Wire versions;
    for (const auto& entry : lab.journal->entries()) {
        if (!entry.command.ends_with("_Version")) continue;
        versions.push_back(entry.command);
        CHECK(entry.length == 0);
    }
    CHECK(versions == Wire{"TBL_RDCWD610_Version", "TBL_RDCWD600_Version", "TBL_RDCWD300_Version"});
}
