// What damaged, missing and empty archive files lead to, at every place where the archive is looked at.
#include "Lab.h"

#include <algorithm>
#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {
constexpr const char* kFirmwareFile = "VK14 01.61.fw";
constexpr const char* kCorruption = "-- File corruption --\n\nThere is a problem with the firmware files.";
} // namespace

TEST_CASE("a damaged firmware file is reported as corruption, and leaving the alert ends the application") {
    ChangedSamples archive;
    archive.damage(kFirmwareFile);
    Lab lab(archive.folder());
    lab.startWithVK14();
    lab.printer()->updateFirmware();
    lab.rest();
    CHECK(lab.operatorDesk.title() == kCorruption);
    CHECK(lab.operatorDesk.message() == "Contact customer support.");
    CHECK(lab.operatorDesk.buttons() == std::vector<std::string>{"Quit"});
    CHECK(lab.operatorDesk.press("Quit"));
    CHECK(lab.application.terminations == 1);
    CHECK(lab.wire().empty());
    CHECK(lab.printer()->deviceInfoDict()->boolean(kFirmwareFile) == false);
}

TEST_CASE("a damaged color table is as bad as a damaged firmware file") {
    ChangedSamples archive;
    archive.damage("VK14_600_0161.cwd");
    Lab lab(archive.folder());
    lab.startWithVK14();
    lab.printer()->updateFirmware();
    lab.rest();
    CHECK(lab.operatorDesk.title() == kCorruption);
    CHECK(lab.printer()->deviceInfoDict()->boolean("VK14_300_0161.cwd") == true);
    CHECK(lab.printer()->deviceInfoDict()->boolean("VK14_600_0161.cwd") == false);
}

TEST_CASE("a firmware file of no bytes never matches") {
    ChangedSamples archive;
    archive.empty(kFirmwareFile);
    Lab lab(archive.folder());
    lab.startWithVK14();
    lab.printer()->updateFirmware();
    lab.rest();
    CHECK(lab.operatorDesk.title() == kCorruption);
}

TEST_CASE("an archive without the firmware file passes its check but has no image, so nothing begins") {
    ChangedSamples archive;
    archive.remove(kFirmwareFile);
    Lab lab(archive.folder());
    lab.startWithVK14();
    CHECK(lab.printer()->verifyFirmwareArchive());
    lab.printer()->updateFirmware();
    lab.rest();
    CHECK(lab.operatorDesk.title() == kCorruption);
    CHECK(lab.wire().empty());
}

TEST_CASE("an archive without its digest file matches nothing") {
    ChangedSamples archive;
    archive.remove("digests.json");
    Lab lab(archive.folder());
    lab.startWithVK14();
    CHECK(lab.printer()->verifyFirmwareArchive() == false);
}

TEST_CASE("an archive that is damaged between the question and the answer is noticed before the first command") {
    ChangedSamples archive;
    Lab lab(archive.folder());
    lab.startWithVK14();
    lab.printer()->updateFirmware();
    lab.rest();
    lab.operatorDesk.setAgreed(true);
    REQUIRE(lab.operatorDesk.press("Continue"));
    lab.rest();
    archive.damage(kFirmwareFile);
    REQUIRE(lab.operatorDesk.press("Update Firmware to VK14 01.61"));
    lab.rest();
    CHECK(lab.operatorDesk.title() == kCorruption);
    CHECK(lab.operatorDesk.buttons() == std::vector<std::string>{"OK"});
    CHECK(lab.operatorDesk.press("OK"));
    CHECK(lab.application.terminations == 0);
    CHECK(lab.wire() == Wire{"STATUS"});
}

TEST_CASE("an archive that is damaged while the printer restarts leaves it in its loader with a message") {
    ChangedSamples archive;
    Lab lab(archive.folder());
    lab.startWithVK14("restart=5000");
    lab.confirmUpdate();
    lab.advance(1s);
    REQUIRE(lab.rows() == 0);
    archive.damage(kFirmwareFile);
    lab.rest();
    CHECK(lab.operatorDesk.title() == "There was a problem with the firmware file!");
    CHECK(lab.operatorDesk.message() == "This application may be damaged. Please download a new copy.");
    CHECK(lab.progress() == 1);
    const Wire wire = lab.wire();
    CHECK(std::ranges::count(wire, std::string("FW_UPDFLASH_PROGRAM")) == 0);
}

TEST_CASE("a color table that is missing at the end still gets its name sent and counts for the report") {
    ChangedSamples archive;
    archive.remove("VK14_600_0161.cwd");
    Lab lab(archive.folder());
    lab.startWithVK14();
    lab.update();
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
    const auto entries = lab.journal->entries();
    std::vector<std::uint32_t> lengths;
    for (const auto& entry : entries) {
        if (entry.command == "TBL_WTCTRLD_UPDATE_CW") lengths.push_back(entry.length);
    }
    REQUIRE(lengths.size() == 2);
    CHECK(lengths[0] > 0);
    CHECK(lengths[1] == 0);
}
