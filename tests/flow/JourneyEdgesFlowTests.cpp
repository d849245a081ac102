// Special cases of an update: the checks that "Proceed" repeats, the state after a failed open, and the log of an
// upload.
#include "Lab.h"

#include <doctest/doctest.h>

using namespace zul;

using namespace std::chrono_literals;

namespace {

constexpr const char* kFirmwareFile = "VK14 01.61.fw";

std::string messageOfAgreement(const std::string& description, std::uint16_t product) {
    Lab lab;
    lab.environment.admittedProductIDs = {product};
    lab.attach(description);
    lab.start();
    lab.printer()->updateFirmware();
    lab.rest();
    REQUIRE(lab.operatorDesk.title() == "Attention:");
    return lab.operatorDesk.message();
}

} // namespace

TEST_CASE("the agreement of a VK18DUP names the version as the file has it") {
    CHECK(messageOfAgreement("VK18DUP", 8) ==
          "This update tool will upgrade the printer firmware to version VK18DUP 1.40PRN. This process cannot be "
          "undone");
}

TEST_CASE("Proceed compares the versions again before it checks the status") {
    Lab lab;
    lab.startWithVK14("status=00000:01000:00000");
    lab.printer()->updateFirmware();
    lab.rest();
    lab.operatorDesk.setAgreed(true);
    REQUIRE(lab.operatorDesk.press("Continue"));
    lab.rest();
    REQUIRE(lab.operatorDesk.title() == "Printer Not Ready");
    lab.printer()->deviceInfoDict()->setString(HOLVEN_TBPrinterFirmwareVersion, "VK14 01.70");
    lab.forgetWire();
    REQUIRE(lab.operatorDesk.press("Proceed"));
    lab.rest();
    CHECK(lab.operatorDesk.title() == "Firmware update not needed");
    CHECK(lab.operatorDesk.message() == "This printer has firmware version 1.70 installed.");
    CHECK(lab.wire().empty());
}

TEST_CASE("a first half whose open fails sends no command, shows no alert, and keeps its update mark") {
    Lab lab;
    lab.startWithVK14();
    lab.printer()->updateFirmware();
    lab.rest();
    lab.operatorDesk.setAgreed(true);
    REQUIRE(lab.operatorDesk.press("Continue"));
    lab.rest();
    REQUIRE(lab.operatorDesk.title().starts_with("-- Warning --"));
    // The readiness check left the interface open: release it first, then let another program claim it.
    lab.printer()->closeInterface(nullptr);
    lab.rest();
    lab.bus.setHeldByOther(0, true);
    lab.forgetWire();
    REQUIRE(lab.operatorDesk.press("Update Firmware to VK14 01.61"));
    lab.rest();
    CHECK(lab.wire().empty());
    CHECK(lab.operatorDesk.waiting() == 0);
    CHECK(lab.printer()->inFirmwareUpdate());
}

TEST_CASE("an upload writes its known log line, also without an error") {
    Lab lab;
    lab.startWithVK14();
    lab.update();
    CHECK(lab.timesLogged("failed to verify firmware archive") == 1);
    CHECK(lab.timesLogged("Uploading firmware to printer") == 1);
    CHECK(lab.logged("forcing printer status string to \"Writing firmware ...\""));
    CHECK(lab.logged("-[TBUSBPrinterZUL finishFirmwareUpdate]_block_invoke"));
}

TEST_CASE("a firmware file that is missing when the loader waits for it is reported, and no command is sent") {
    const ChangedSamples archive;
    Lab lab(archive.folder());
    lab.startWithVK14("mode=loader");
    lab.bus.unplug(0);
    lab.rest();
    lab.bus.plug(0);
    lab.rest();
    std::filesystem::remove(archive.folder() / kFirmwareFile);
    lab.forgetWire();
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
    lab.rest();
    CHECK(lab.operatorDesk.title() == "There was a problem with the firmware file!");
    CHECK(lab.operatorDesk.message() == "This application may be damaged. Please download a new copy.");
    CHECK(lab.operatorDesk.buttons() == std::vector<std::string>{"OK"});
    CHECK(lab.logged("FAILED Uploading firmware to printer (bad file)"));
    CHECK(lab.wire().empty());
}

TEST_CASE("a printer's row is kept until its running command has finished") {
    Lab lab;
    lab.startWithVK14();
    lab.printer()->printerCommandQueue()->async([&lab] { lab.clock.sleepFor(10s); });
    lab.bus.unplug(0);
    lab.advance(5s);
    CHECK(lab.rows() == 1);
    lab.advance(6s);
    CHECK(lab.rows() == 0);
}

TEST_CASE("selecting a row has no effect for a version reported by a retired printer") {
    Lab lab;
    lab.startWithVK14();
    const auto retired = lab.printer();
    lab.bus.unplug(0);
    lab.rest();
    const int before = lab.timesLogged("observeValueForKeyPath");
    REQUIRE(before > 0);
    { const KeyChange change(*retired, HOLVEN_TBPrinterFirmwareVersion); }
    lab.rest();
    CHECK(lab.timesLogged("observeValueForKeyPath") == before);
}
