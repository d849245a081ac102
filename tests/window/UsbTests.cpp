// The window on the real USB stack. Only where a gadget stands for the printer: the test guest runs this by name.
#include "window/Stage.h"

#include "ui/PrinterTableModel.h"

#include <doctest/doctest.h>

namespace zul::test {

TEST_CASE("usb: the window updates a printer on the bus through both restarts" * doctest::skip()) {
    Stage stage({.printers = {}, .usesRealBus = true});
    stage.waitForFacts();
    REQUIRE(stage.rows() == 1);
    CHECK(stage.cell(0, ui::PrinterTableModel::installedFirmware) == "VK14 01.60");
    stage.click("Update Firmware…");
    stage.waitForAlert("Attention:");
    stage.click("I Agree");
    stage.answer("Continue");
    stage.waitForAlert("-- Warning --\n\nAre you certain you want to update the firmware?");
    stage.answer("Update Firmware to VK14 01.61");
    stage.waitForAlert("Firmware update was successful!");
    stage.answer("Finish");
    stage.settle();
    CHECK(stage.cell(0, ui::PrinterTableModel::installedFirmware) == "VK14 01.61");
    CHECK(stage.cell(0, ui::PrinterTableModel::colorTables) == "0161");
    CHECK(stage.window().follower().updates().begin()->second.end == ui::FollowedUpdate::End::succeeded);
    CHECK(stage.visibleText().contains("2 color tables written."));
}

} // namespace zul::test
