// The effect of damaged, missing and empty archive files at every point where the archive is used.
#include "Lab.h"

#include "archive/SRecord.h"
#include "platform/files/Files.h"
#include "support/WatchedReader.h"

#include <algorithm>
#include <atomic>
#include <doctest/doctest.h>
#include <sys/stat.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {
constexpr const char* kFirmwareFile = "VK14 01.61.fw";
constexpr const char* kTable300 = "VK14_300_0161.cwd";
constexpr const char* kTable600 = "VK14_600_0161.cwd";
constexpr const char* kCorruption = "-- File corruption --\n\nThere is a problem with the firmware files.";

// Checksums of the payloads that were sent with this command, in order.
std::vector<std::string> sent(const Lab& lab, const std::string& command) {
    std::vector<std::string> checksums;
    for (const VirtualJournalEntry& entry : lab.journal->entries()) {
        if (entry.event == "command" && entry.command == command) checksums.push_back(entry.sha256);
    }
    return checksums;
}

// The checksum of the payload for this sample file.
std::string checksumOfSample(const std::string& name) {
    return sha256Of(*contentsOfFile(Lab::sampleArchive() / name));
}
std::vector<std::string> sampleImage() {
    return {sha256Of(paddedData(*contentsOfFile(Lab::sampleArchive() / kFirmwareFile)))};
}
std::vector<std::string> sampleTables() {
    return {checksumOfSample(kTable300), checksumOfSample(kTable600)};
}

// Starts an update and confirms it; the printer is restarting into its loader.
void begin(Lab& lab) {
    lab.startWithVK14("restart=5000");
    lab.confirmUpdate();
    lab.advance(1s);
    REQUIRE(lab.rows() == 0);
}
} // namespace

TEST_CASE("without an archive no version is available, not even a missing one") {
    Lab lab;
    lab.startWithVK14();
    CHECK(lab.printer()->availableFirmware());
    lab.bundle.withholdArchive();
    CHECK_FALSE(lab.printer()->availableFirmware());
}

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

TEST_CASE("a damaged color table is reported like a damaged firmware file") {
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

TEST_CASE("an empty firmware file never matches") {
    ChangedSamples archive;
    archive.empty(kFirmwareFile);
    Lab lab(archive.folder());
    lab.startWithVK14();
    lab.printer()->updateFirmware();
    lab.rest();
    CHECK(lab.operatorDesk.title() == kCorruption);
}

TEST_CASE("an archive without the firmware file passes its check but has no image, so no update begins") {
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

TEST_CASE("no file of an archive without a digest file matches") {
    ChangedSamples archive;
    archive.remove("digests.json");
    Lab lab(archive.folder());
    lab.startWithVK14();
    CHECK(lab.printer()->verifyFirmwareArchive() == false);
}

TEST_CASE("an archive damaged between the question and the answer is detected before the first command") {
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

TEST_CASE("an archive damaged while the printer restarts leaves it in its loader with a message") {
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

TEST_CASE("for a color table that is missing at the end only the name is sent, and the report includes it") {
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

TEST_CASE("an update opens each file once, and the update of a second printer of the model opens none") {
    const auto reader = std::make_shared<WatchedReader>();
    Lab lab(Lab::sampleArchive(), reader);
    lab.attach("VK14");
    lab.attach("VK14,serial=000002");
    lab.start();
    for (int printer = 0; printer < 2; ++printer) {
        const bool isFirstRow = lab.infoText(HOLVEN_TBPrinterFirmwareVersion, 0) == "VK14 01.60";
        lab.update(isFirstRow ? 0 : 1);
        REQUIRE(lab.operatorDesk.title() == "Firmware update was successful!");
        REQUIRE(lab.operatorDesk.press("Finish"));
    }
    CHECK(sent(lab, "FW_UPDFLASH_PROGRAM") == std::vector<std::string>(2, sampleImage().front()));
    CHECK(sent(lab, "TBL_WTCTRLD_UPDATE_CW").size() == 4);
    CHECK(reader->opened() ==
          std::map<std::string, int>{{kFirmwareFile, 1}, {kTable300, 1}, {kTable600, 1}, {"digests.json", 1}});
}

TEST_CASE("a firmware file replaced right after the upload's check is not what is sent") {
    ChangedSamples archive;
    const auto reader = std::make_shared<WatchedReader>();
    std::atomic<bool> isArmed{false};
    reader->beforeLook = [&](const std::string& name) {
        // The last file of the row: the firmware file was checked just before.
        if (name == kTable600 && isArmed.exchange(false)) archive.damage(kFirmwareFile);
    };
    Lab lab(archive.folder(), reader);
    begin(lab);
    isArmed = true;
    lab.rest();
    REQUIRE_FALSE(isArmed);
    CHECK(sent(lab, "FW_UPDFLASH_PROGRAM") == sampleImage());
    // The next check, that of the tables, detects the damaged file.
    CHECK(sent(lab, "TBL_WTCTRLD_UPDATE_CW").empty());
    CHECK(lab.logged("failed to verify firmware archive"));
}

TEST_CASE("a color table replaced right after the check of the tables is not what is sent") {
    ChangedSamples archive;
    const auto reader = std::make_shared<WatchedReader>();
    std::atomic<int> looks{0}; // of the last file of the row, since the printer left for its loader
    std::atomic<bool> isArmed{false};
    reader->beforeLook = [&](const std::string& name) {
        if (isArmed && name == kTable600 && ++looks == 2) archive.damage(kTable300);
    };
    Lab lab(archive.folder(), reader);
    begin(lab);
    isArmed = true;
    lab.rest();
    CHECK(looks == 2); // the upload's check and that of the tables
    CHECK(sent(lab, "TBL_WTCTRLD_UPDATE_CW") == sampleTables());
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
}

TEST_CASE("files truncated in place while the printer restarts are refused") {
    ChangedSamples archive;
    archive.remove(kFirmwareFile);
    std::filesystem::copy_file(Lab::sampleArchive() / kFirmwareFile, archive.folder() / kFirmwareFile);
    Lab lab(archive.folder());
    begin(lab);
    std::filesystem::resize_file(archive.folder() / kFirmwareFile, 100'000);
    lab.rest();
    CHECK(lab.operatorDesk.title() == "There was a problem with the firmware file!");
    CHECK(sent(lab, "FW_UPDFLASH_PROGRAM").empty());
}

TEST_CASE("files that were verified before the printer restarts are used although they were removed meanwhile") {
    for (const char* name : {kFirmwareFile, kTable300}) {
        CAPTURE(name);
        ChangedSamples archive;
        Lab lab(archive.folder());
        begin(lab);
        archive.remove(name);
        lab.rest();
        CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
        CHECK(sent(lab, "FW_UPDFLASH_PROGRAM") == sampleImage());
        CHECK(sent(lab, "TBL_WTCTRLD_UPDATE_CW") == sampleTables());
    }
}

TEST_CASE("an archive that is empty when the printer returns leaves it in its loader with a message") {
    ChangedSamples archive;
    Lab lab(archive.folder());
    begin(lab);
    for (const char* name : {kFirmwareFile, kTable300, kTable600}) archive.remove(name);
    lab.rest();
    CHECK(lab.operatorDesk.title() == "There was a problem with the firmware file!");
    CHECK(sent(lab, "FW_UPDFLASH_PROGRAM").empty());
}

TEST_CASE("a firmware file removed after the offer stops the update before the first command") {
    ChangedSamples archive;
    Lab lab(archive.folder());
    lab.startWithVK14();
    REQUIRE(lab.printer()->verifyFirmwareArchive());
    archive.remove(kFirmwareFile);
    lab.printer()->updateFirmware();
    lab.rest();
    CHECK(lab.operatorDesk.title() == kCorruption);
    CHECK(lab.wire().empty());
}

TEST_CASE("a color table that appears after the check is not sent unverified") {
    ChangedSamples archive;
    const auto reader = std::make_shared<WatchedReader>();
    archive.remove(kTable300);
    std::atomic<int> looks{0};
    std::atomic<bool> isArmed{false};
    reader->beforeLook = [&](const std::string& name) {
        if (isArmed && name == kTable600 && ++looks == 2) archive.damage(kTable300);
    };
    Lab lab(archive.folder(), reader);
    begin(lab);
    isArmed = true;
    lab.rest();
    REQUIRE(looks == 2);
    CHECK(sent(lab, "TBL_WTCTRLD_UPDATE_CW") == std::vector<std::string>{"", checksumOfSample(kTable600)});
}

TEST_CASE("a pipe in place of the firmware file does not block") {
    ChangedSamples archive;
    archive.remove(kFirmwareFile);
    REQUIRE(::mkfifo((archive.folder() / kFirmwareFile).c_str(), 0600) == 0);
    Lab lab(archive.folder());
    lab.startWithVK14();
    lab.printer()->updateFirmware();
    lab.rest();
    CHECK(lab.operatorDesk.title() == kCorruption);
}
