// Which printer is highlighted, and that actions go to just that one.
#include "window/Stage.h"

#include "platform/foundation/SystemLog.h"
#include "support/LogCapture.h"
#include "ui/PrinterTableModel.h"
#include "virtual_printer/VirtualBus.h"

#include <QTableView>
#include <doctest/doctest.h>

namespace zul::test {

namespace {

void checkHighlightIsTarget(Stage& stage) {
    const auto selected = stage.window().selection();
    REQUIRE(selected != nullptr);
    CHECK(stage.cell(stage.highlightedRow(), ui::PrinterTableModel::serialNumber).toStdString() ==
          selected->printerSerialNumber().value_or("?"));
}

} // namespace

TEST_CASE("clicking the second row ends with the first one selected") {
    Stage stage({.printers = {quick("VK14"), quick("VK14")}});
    stage.waitForFacts();
    stage.clickRow(0);
    LogCapture log;
    stage.clickRow(1);
    stage.settle();
    CHECK(stage.highlightedRow() == 0);
    CHECK(stage.window().findChild<QTableView*>("table")->currentIndex().row() == 0);
    checkHighlightIsTarget(stage);
    CHECK(log.hasLogged("really selecting row 0"));
    CHECK_FALSE(log.hasLogged("selecting row 0"));
}

TEST_CASE("the arrow keys end with the first row selected, too") {
    Stage stage({.printers = {quick("VK14"), quick("VK14")}});
    stage.waitForFacts();
    stage.clickRow(0);
    stage.press(Qt::Key_Down);
    stage.settle();
    CHECK(stage.highlightedRow() == 0);
    checkHighlightIsTarget(stage);
}

TEST_CASE("a printer whose firmware version is read becomes the selected one") {
    Stage stage({.printers = {quick("VK14"), quick("VK14")}});
    stage.waitForFacts();
    stage.clickRow(0);
    stage.settle();
    REQUIRE(stage.highlightedRow() == 0);
    stage.printers().at(1)->getPrinterFirmwareVersion();
    stage.waitFor("the second row", [&] { return stage.highlightedRow() == 1; });
    checkHighlightIsTarget(stage);
}

TEST_CASE("when the selected printer leaves the first one is selected") {
    Stage stage({.printers = {quick("VK14"), quick("VK14"), quick("VK14")}});
    stage.waitForFacts();
    stage.printers().at(2)->getPrinterFirmwareVersion();
    stage.waitFor("the third row", [&] { return stage.highlightedRow() == 2; });
    stage.bus().unplug(2);
    stage.waitFor("two rows", [&] { return stage.rows() == 2; });
    stage.settle();
    CHECK(stage.highlightedRow() == 0);
    checkHighlightIsTarget(stage);
}

TEST_CASE("when another printer leaves the selected one stays selected") {
    Stage stage({.printers = {quick("VK14"), quick("VK14")}});
    stage.waitForFacts();
    stage.printers().at(1)->getPrinterFirmwareVersion();
    stage.waitFor("the second row", [&] { return stage.highlightedRow() == 1; });
    const auto selected = stage.window().selection();
    stage.bus().unplug(0);
    stage.waitFor("one row", [&] { return stage.rows() == 1; });
    CHECK(stage.window().selection() == selected);
    checkHighlightIsTarget(stage);
}

} // namespace zul::test
