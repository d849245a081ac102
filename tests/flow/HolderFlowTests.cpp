// Another program holds the printer at each open of an update: the update waits for it and continues by itself.
#include "SupervisedLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

constexpr int kFewestOpensOfAnUpdate = 4; // arrival, check, loader, new firmware

std::ptrdiff_t refusedOpens(const Lab& lab) {
    const auto entries = lab.journal->entries();
    return std::ranges::count(entries, "refuse", &VirtualJournalEntry::event);
}

// The answers of an operator who finds the printer busy before the first command.
void beginThroughBusy(SupervisedLab& lab) {
    lab.supervisor.begin(lab.printer(), UpdateSupervisor::Equal::install);
    lab.rest(1s);
    lab.agree();
    if (lab.operatorDesk.title() == "Printer Busy") {
        lab.rest(5s);
        REQUIRE(lab.operatorDesk.press("Proceed"));
        lab.rest(1s);
    }
    REQUIRE(lab.operatorDesk.title().starts_with("-- Warning --"));
    REQUIRE(lab.operatorDesk.press(lab.operatorDesk.buttons().at(1)));
}

} // namespace

TEST_CASE("an update whose printer is held at any one open succeeds without the operator") {
    int open = 1;
    for (bool isReached = true; isReached; ++open) {
        CAPTURE(open);
        SupervisedLab lab;
        lab.attach("VK14,fault=holder#" + std::to_string(open) + ":3000");
        lab.start();
        REQUIRE(lab.rows() == 1);
        beginThroughBusy(lab);
        lab.rest();
        isReached = refusedOpens(lab) > 0; // otherwise the update has fewer opens than this number
        CHECK(lab.result() == UpdateResult::succeeded);
        CHECK(lab.timesSeen("FW_UPDFLASH_PROGRAM") == 1);
        CHECK(lab.timesSeen("TBL_WTCTRLD_UPDATE_CW") == 2);
        CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
        CHECK(lab.operatorDesk.waiting() == 1);
        CHECK(lab.printer()->ownership() == Ownership::none);
    }
    CHECK(open > kFewestOpensOfAnUpdate);
}

TEST_CASE("a program that claims the printer repeatedly only delays the update") {
    SupervisedLab lab;
    // At the arrival of the loader, where three jobs try to open, and at its first retry; then the same with the new
    // firmware.
    lab.startWithVK14("fault=holder#3:3000,fault=holder#6:2000,fault=holder#8:3000,fault=holder#11:1000");
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(refusedOpens(lab) == 8);
    CHECK(lab.timesSeen("FW_UPDFLASH_PROGRAM") == 1);
}

TEST_CASE("a held printer is reported with the program that holds it, and not as stalled") {
    SupervisedLab lab;
    lab.startWithVK14("fault=holder#3:600000");
    lab.beginUpdate();
    lab.rest(1min);
    REQUIRE(lab.update().state.holder);
    CHECK(lab.update().state.holder->kind == InterfaceHolder::Kind::process);
    CHECK(lab.update().state.holder->program == "another program");
    CHECK(lab.update().isWaiting);
    CHECK_FALSE(lab.update().isStalled);
    lab.rest(20min);
    CHECK_FALSE(lab.update().state.holder);
    CHECK(lab.result() == UpdateResult::succeeded);
}

TEST_CASE("a loader that was held is probed as at its arrival once it is free, and then queried as after any wait") {
    Lab lab;
    lab.startWithVK14("fault=holder#3:3000");
    lab.confirmUpdate();
    lab.rest();
    const Wire wire = lab.wire();
    const auto loader = std::ranges::find(wire, std::string("arrive"));
    const auto left = std::ranges::find(loader, wire.end(), std::string("leave"));
    CHECK(Wire(loader, left) == Wire{"arrive", "INFO  FVER", "STATUS", "FW_UPDFLASH_PROGRAM", "STATUS"});
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
}

TEST_CASE("a finished probe is not repeated when another program releases the printer later") {
    Lab lab;
    lab.startWithVK14();
    lab.update();
    REQUIRE(lab.operatorDesk.press("Finish"));
    REQUIRE(lab.progress() == 3);
    lab.bus.setHeldByOther(0, true);
    lab.printer()->updateInfo();
    lab.rest();
    REQUIRE(lab.printer()->ownership() == Ownership::otherProgram);
    lab.forgetWire();
    lab.bus.setHeldByOther(0, false);
    lab.rest();
    CHECK(lab.wire() == attachWire());
    CHECK(lab.progress() == 3);
    CHECK_FALSE(lab.logged("found a device finished with firmware update"));
}

TEST_CASE("a holder that releases the printer at once causes no endless wait") {
    Lab lab;
    lab.attach("VK14,fault=holder#1:0");
    lab.start();
    CHECK(lab.printer()->ownership() == Ownership::none);
    CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion) == "VK14 01.60");
}

TEST_CASE("a printer that was claimed while it was held is queried once it is free") {
    Lab lab;
    lab.startWithVK14();
    lab.bus.setHeldByOther(0, true);
    lab.printer()->updateInfo();
    lab.rest();
    lab.printer()->setIsOwned(1);
    lab.rest();
    CHECK(lab.printer()->status() == "USB Busy");
    lab.forgetWire();
    lab.bus.setHeldByOther(0, false);
    lab.rest();
    CHECK(lab.wire() == attachWire());
    CHECK(lab.infoText(HOLVEN_TBPrinterStatus) == "Idle");
}
