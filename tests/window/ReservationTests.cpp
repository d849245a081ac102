// Printers that are claimed, updated or used by another process: reservations, refusals and the texts of the rows. GUI
// thread.
#include "window/Stage.h"
#include "window/Updates.h"

#include "ui/PrinterTableModel.h"
#include "unit/update/ChildProcess.h"
#include "virtual_printer/VirtualBus.h"

#include <QAction>
#include <doctest/doctest.h>
#include <string>
#include <unistd.h>

namespace zul::test {

TEST_CASE("a claimed printer is reserved until the claim ends, and one that cannot be claimed is not") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    Session& session = stage.program().session();
    const auto printer = stage.printers().front();
    const auto isReserved = [&] { return session.locks.ask(printer->keyUSBdevice()).has_value(); };
    CHECK_FALSE(session.setClaimed(printer, true));
    stage.waitFor("the claim", [&] { return printer->ownership() == Ownership::thisProgram; });
    stage.settle();
    CHECK(isReserved());
    CHECK_FALSE(session.setClaimed(printer, false));
    stage.waitFor("the end of the reservation", [&] { return !isReserved(); });

    stage.bus().setHeldByOther(0, true);
    CHECK_FALSE(session.setClaimed(printer, true));
    stage.waitFor("the refusal", [&] { return printer->ownership() == Ownership::otherProgram; });
    stage.waitFor("the end of the reservation", [&] { return !isReserved(); });
}

TEST_CASE("the update of a claimed printer is reserved as an update, and the printer is free after it") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    Session& session = stage.program().session();
    const std::string key = stage.printers().front()->keyUSBdevice();
    const auto activity = [&] { return session.locks.ask(key).value_or(LockAnswer{}).activity; };
    stage.click("Claim Printer");
    stage.waitFor("the claim", [&] { return activity() == "claim"; });
    stage.click("Update Firmware…");
    SUBCASE("when it has succeeded") {
        agreeAndConfirm(stage, "VK14 01.61");
        stage.waitFor("the update's reservation", [&] { return activity() == "update"; });
        stage.waitForAlert(kSuccessTitle);
        stage.answer("Finish");
        stage.waitFor("the end of the reservation", [&] { return activity().empty(); });
    }
    SUBCASE("when it was unplugged before the update began") {
        stage.waitForAlert("Attention:");
        stage.bus().unplug(0);
        stage.waitFor("the end of the reservation", [&] { return activity().empty(); });
        stage.program().alerts().dismissAll();
    }
    SUBCASE("and it is still claimed when it was declined") {
        stage.waitForAlert("Attention:");
        CHECK(activity() == "update");
        stage.click("I Agree");
        stage.answer("Continue");
        stage.waitForAlert(kConfirmTitle);
        stage.answer("Cancel");
        stage.waitFor("the claim", [&] { return activity() == "claim"; });
        CHECK(stage.printers().front()->ownership() == Ownership::thisProgram);
        stage.click("Claim Printer");
        stage.waitFor("the end of the reservation", [&] { return activity().empty(); });
    }
}

TEST_CASE("nothing is changed in a printer that another process has reserved, and that process is named") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    const std::string key = stage.printers().front()->keyUSBdevice();
    // Embedded printers and their locks belong to one process: the lock's name contains its number.
    ChildProcess other({ZUL_LOCK_HOLDER, "zul-printer-utility-embedded-" + std::to_string(::getpid()), "0"});
    REQUIRE(other("lock " + key + " update") == "locked");
    const std::string before = TemporaryFolder::read(stage.journalFile());
    for (const char* action : {"actionHotPlug", "actionClaim", "actionCounterA"}) {
        CAPTURE(action);
        stage.window().findChild<QAction*>(action)->trigger();
        if (std::string(action) == "actionCounterA") stage.answer("Reset Counter");
        stage.waitFor("the refusal", [&] { return stage.alert() && stage.alert()->buttons == QStringList{"OK"}; });
        CHECK(stage.alert()->title.startsWith("VK14 000001 (1-1): lock_holder uses the printer (process "));
        CHECK(stage.alert()->message.startsWith("It updates the printer: do not close it"));
        stage.answer("OK");
    }
    stage.settle();
    CHECK(TemporaryFolder::read(stage.journalFile()) == before);
}

TEST_CASE("the row of a printer shows that another program uses it, until it does not any more") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    const int kStatus = ui::PrinterTableModel::status;
    stage.bus().setHeldByOther(0, true);
    stage.click("Refresh");
    stage.waitFor("the holder", [&] { return stage.cell(0, kStatus).contains("another program uses the printer"); });
    stage.bus().setHeldByOther(0, false);
    stage.waitFor("its end", [&] { return !stage.cell(0, kStatus).contains("another program uses the printer"); });
}

TEST_CASE("the row of a printer whose update is not complete shows what is to be done") {
    Stage stage({.printers = {quick("VK14", "fault=stay-in-loader@FLASH_PROGRAM")}});
    stage.waitForDeviceInfo();
    const int kStatus = ui::PrinterTableModel::status;
    stage.click("Update Firmware…");
    agreeAndConfirm(stage, "VK14 01.61");
    stage.waitFor("the result", [&] { return !onlyUpdate(stage).isOpen(); });
    stage.waitFor("the advice", [&] {
        return stage.rows() == 1 && stage.cell(0, kStatus).contains("is not complete, start it again");
    });
}

} // namespace zul::test
