// Which printer is highlighted, and that actions apply to that one. GUI thread.
#include "window/Stage.h"

#include "platform/foundation/SystemLog.h"
#include "support/LogCapture.h"
#include "ui/PrinterTableModel.h"
#include "virtual_printer/VirtualBus.h"

#include <QAction>
#include <QApplication>
#include <QContextMenuEvent>
#include <QMenu>
#include <QTableView>
#include <QTest>
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

TEST_CASE("a click on the second row ends with the first one selected") {
    Stage stage({.printers = {quick("VK14"), quick("VK14")}});
    stage.waitForDeviceInfo();
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
    stage.waitForDeviceInfo();
    stage.clickRow(0);
    stage.press(Qt::Key_Down);
    stage.settle();
    CHECK(stage.highlightedRow() == 0);
    checkHighlightIsTarget(stage);
}

TEST_CASE("a printer whose firmware version is read becomes the selected one") {
    Stage stage({.printers = {quick("VK14"), quick("VK14")}});
    stage.waitForDeviceInfo();
    stage.clickRow(0);
    stage.settle();
    REQUIRE(stage.highlightedRow() == 0);
    stage.printers().at(1)->getPrinterFirmwareVersion();
    stage.waitFor("the second row", [&] { return stage.highlightedRow() == 1; });
    checkHighlightIsTarget(stage);
}

TEST_CASE("when the selected printer leaves the first one is selected") {
    Stage stage({.printers = {quick("VK14"), quick("VK14"), quick("VK14")}});
    stage.waitForDeviceInfo();
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
    stage.waitForDeviceInfo();
    stage.printers().at(1)->getPrinterFirmwareVersion();
    stage.waitFor("the second row", [&] { return stage.highlightedRow() == 1; });
    const auto selected = stage.window().selection();
    stage.bus().unplug(0);
    stage.waitFor("one row", [&] { return stage.rows() == 1; });
    CHECK(stage.window().selection() == selected);
    checkHighlightIsTarget(stage);
}

TEST_CASE("the context menu names the highlighted printer and applies to it, wherever it is opened") {
    Stage stage({.printers = {quick("VK14", "serial=111111"), quick("VK14", "serial=222222")}});
    stage.waitForDeviceInfo();
    stage.clickRow(0);
    REQUIRE(stage.highlightedRow() == 0);
    QTableView& table = *stage.window().findChild<QTableView*>("table");
    const QPoint place = table.visualRect(table.model()->index(1, 1)).center();
    QTest::mousePress(table.viewport(), Qt::RightButton, Qt::NoModifier, place);
    QContextMenuEvent asked(QContextMenuEvent::Mouse, place, table.viewport()->mapToGlobal(place));
    QApplication::sendEvent(table.viewport(), &asked);
    const auto menu = [&] { return stage.window().findChild<QMenu*>("contextMenu"); };
    stage.waitFor("the menu", [&] { return menu() != nullptr && menu()->isVisible(); });
    CHECK(stage.highlightedRow() == 0);
    CHECK(menu()->actions().first()->text() == "VK14 111111 (1-1)");
    QStringList items;
    for (const QAction* action : menu()->actions()) items << action->objectName();
    for (const char* name : {"actionUpdate", "actionRefresh", "actionHotPlug", "actionSerial", "actionClaim",
                             "actionReport", "actionLog", "actionAbout", "actionQuit"}) {
        CHECK_MESSAGE(items.contains(name), name);
    }
    stage.printers()[1]->getPrinterFirmwareVersion(); // the other printer becomes the selected one: the menu would
                                                      // apply to the wrong one
    stage.waitFor("the menu to close", [&] { return menu() == nullptr || !menu()->isVisible(); });
    CHECK(stage.highlightedRow() == 1);
}

TEST_CASE(
    "refresh asks again, hot plug lets the printer leave and return, and claiming holds it until it is released") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    const auto times = [&](const std::string& part) {
        const std::string journal = TemporaryFolder::read(stage.journalFile());
        int found = 0;
        for (auto at = journal.find(part); at != std::string::npos; at = journal.find(part, at + 1)) ++found;
        return found;
    };
    const int asked = times("INFO  FVER");
    stage.click("Refresh");
    stage.waitFor("the question", [&] { return times("INFO  FVER") > asked; });
    stage.settle();
    stage.click("Claim Printer");
    stage.waitFor("the claim", [&] { return stage.printers()[0]->ownership() == Ownership::thisProgram; });
    stage.waitFor("its mark", [&] { return stage.window().findChild<QAction*>("actionClaim")->isChecked(); });
    stage.click("Claim Printer");
    stage.waitFor("the release", [&] { return stage.printers()[0]->ownership() == Ownership::none; });
    stage.waitFor("no mark", [&] { return !stage.window().findChild<QAction*>("actionClaim")->isChecked(); });
    stage.click("Hot Plug");
    stage.waitFor("the printer to leave and return", [&] { return times("\"arrive\"") == 2 && stage.rows() == 1; });
    stage.waitForDeviceInfo();
}

TEST_CASE("the selected row stays visible when an update takes height from the table") {
    Stage stage({.printers = {quick("VK14"), quick("VK14"), quick("VK14"), quick("VK14"), quick("VK14")}});
    stage.waitForDeviceInfo();
    stage.printers().back()->getPrinterFirmwareVersion(); // it becomes the selected one
    stage.waitFor("the row", [&] { return stage.highlightedRow() == 4; });
    stage.click("Update Firmware…");
    stage.waitForAlert("Attention:");
    const auto& table = *stage.window().findChild<QTableView*>("table");
    stage.waitFor("the visible row",
                  [&] { return table.viewport()->rect().contains(table.visualRect(table.model()->index(4, 1))); });
    CHECK(stage.highlightedRow() == 4);
}

TEST_CASE("About shows the version") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    stage.click("About");
    CHECK(stage.waitForAlert("ZUL Printer Utility").message.contains("2.06 (build 1)"));
    stage.press(Qt::Key_Escape);
    stage.waitFor("its end", [&] { return !stage.alert(); });
}

} // namespace zul::test
