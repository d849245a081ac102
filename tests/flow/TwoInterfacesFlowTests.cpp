// A device with two printer interfaces has two rows for one printer: one update, one image, one pass of tables.
#include "SupervisedLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Equal = UpdateSupervisor::Equal;

void checkOneUpdate(const Lab& lab) {
    const Wire wire = lab.wire();
    CHECK(std::ranges::count(wire, "FW_UPDFLASH_REWRITE") == 1);
    CHECK(std::ranges::count(wire, "FW_UPDFLASH_PROGRAM") == 1);
    CHECK(std::ranges::count(wire, "TBL_CL") == 1);
    CHECK(std::ranges::count(wire, "TBL_WTVersion") == 2);
    CHECK(std::ranges::count(wire, "TBL_WTCTRLD_UPDATE_CW") == 2);
}

} // namespace

TEST_CASE("the update of either row is one update of the printer, and both rows leave and return") {
    for (const std::size_t row : {0U, 1U}) {
        CAPTURE(row);
        Lab lab;
        lab.attach("VK14,interfaces=2,restart=20000");
        lab.start();
        REQUIRE(lab.rows() == 2);
        lab.forgetWire();
        lab.confirmUpdate(row);
        lab.advance(5s);
        CHECK(lab.rows() == 0);
        lab.rest();
        CHECK(lab.rows() == 2);
        checkOneUpdate(lab);
        CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
        CHECK(lab.operatorDesk.message() == "Firmware version updated from VK14 01.60 to VK14 01.61");
        CHECK(lab.operatorDesk.waiting() == 1);
        for (const std::size_t each : {0U, 1U}) {
            CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion, each) == "VK14 01.61");
            CHECK_FALSE(lab.printer(each)->inFirmwareUpdate());
        }
    }
}

TEST_CASE("an update confirmed for both rows is begun by the first one") {
    Lab lab;
    lab.attach("VK14,interfaces=2");
    lab.start();
    lab.forgetWire();
    for (const std::size_t row : {0U, 1U}) {
        lab.printer(row)->updateFirmware();
        lab.rest();
    }
    for (int alert = 0; alert < 2; ++alert) {
        lab.operatorDesk.setAgreed(true);
        REQUIRE(lab.operatorDesk.press("Continue"));
    }
    lab.rest();
    REQUIRE(lab.operatorDesk.waiting() == 2);
    const std::string update = lab.operatorDesk.buttons().at(1);
    REQUIRE(lab.operatorDesk.press(update));
    REQUIRE(lab.operatorDesk.press(update)); // at once: the first has not begun yet
    lab.rest();
    checkOneUpdate(lab);
    CHECK(lab.logged("ZUL VK14 000001 is being updated through its other interface"));
    CHECK(lab.operatorDesk.waiting() == 1);
}

TEST_CASE("an action on the other row of a printer that is being updated does nothing") {
    Lab lab;
    lab.attach("VK14,interfaces=2,fault=never-back@FLASH_PROGRAM");
    lab.start();
    lab.confirmUpdate(0);
    lab.rest(2500ms); // in its loader
    REQUIRE(lab.rows() == 2);
    lab.forgetWire();
    const auto other = lab.printer(1);
    other->updateFirmware();
    other->proceedWithUpdateWhenReady();
    other->uploadFirmware();
    other->updateFirmwareAndColorTables();
    lab.rest();
    CHECK(lab.operatorDesk.waiting() == 0);
    const Wire wire = lab.wire();
    CHECK(std::ranges::count(wire, "FW_UPDFLASH_PROGRAM") == 1);
    CHECK(lab.timesLogged("is being updated through its other interface") == 4);
}

TEST_CASE("a second update is possible through the other row when the first has ended") {
    Lab lab;
    lab.attach("VK14,interfaces=2");
    lab.start();
    lab.update(0);
    REQUIRE(lab.operatorDesk.press("Finish"));
    lab.forgetWire();
    lab.update(1);
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
    checkOneUpdate(lab);
}

TEST_CASE("a known printer found in its loader raises one question, not one for each row") {
    Lab lab;
    lab.attach("VK14,interfaces=2,mode=loader");
    lab.start();
    lab.bus.unplug(0);
    lab.rest();
    lab.bus.plug(0);
    lab.rest();
    REQUIRE(lab.rows() == 2);
    CHECK(lab.operatorDesk.waiting() == 1);
    lab.forgetWire();
    REQUIRE(lab.operatorDesk.press("Update Firmware"));
    lab.rest();
    CHECK(lab.timesLogged("Uploading firmware to printer") == 1);
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
}

TEST_CASE("the supervisor makes one update of both rows") {
    for (const std::size_t first : {0U, 1U}) {
        CAPTURE(first);
        SupervisedLab lab;
        lab.attach("VK14,interfaces=2");
        lab.start();
        lab.forgetWire();
        const auto printers = lab.controller->printers();
        lab.supervisor.begin(printers.at(first), Equal::install);
        lab.supervisor.begin(printers.at(1 - first), Equal::install);
        lab.rest(1s);
        lab.agree();
        REQUIRE(lab.operatorDesk.press(lab.operatorDesk.buttons().at(1)));
        lab.rest();
        CHECK(lab.result() == UpdateResult::succeeded);
        CHECK(lab.ends.size() == 1);
        checkOneUpdate(lab);
        CHECK(lab.operatorDesk.waiting() == 1);
    }
}

TEST_CASE("an interface whose query was not answered is released like the other one") {
    for (const int query : {1, 2, 3}) {
        CAPTURE(query);
        SupervisedLab lab;
        const auto silence = [](int number) { return ",fault=silence@STATUS#" + std::to_string(number); };
        lab.attach("VK14,interfaces=2" + silence(query) + silence(query + 1)); // the query is repeated once
        lab.start();
        lab.rest();
        REQUIRE(lab.rows() == 2);
        for (const std::size_t row : {0U, 1U}) CHECK(lab.printer(row)->ownership() == Ownership::none);
    }
}
