// What the operator sees without doing anything: the table, the details, the empty window, and printers that are
// attached and detached. GUI thread.
#include "window/Stage.h"

#include "platform/foundation/UserDefaults.h"
#include "support/ScriptedInterface.h"
#include "ui/PrinterTableModel.h"
#include "virtual_printer/VirtualBus.h"

#include <QAccessible>
#include <QAction>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QTableView>
#include <doctest/doctest.h>

namespace zul::test {

namespace {

using Model = ui::PrinterTableModel;

} // namespace

TEST_CASE("two attached printers are two rows with all their device info") {
    Stage stage({.printers = {quick("VK14", "serial=111111"), quick("VK14", "serial=222222,lifetime=1234")}});
    stage.waitForDeviceInfo();
    REQUIRE(stage.rows() == 2);
    CHECK(stage.cell(0, Model::model) == "ZUL VK14");
    CHECK(stage.accessibleCell(0, Model::picture) == "ZUL VK14");
    CHECK(stage.cell(0, Model::serialNumber) == "111111");
    CHECK(stage.cell(1, Model::serialNumber) == "222222");
    CHECK(stage.cell(0, Model::status) == "Idle");
    CHECK(stage.cell(0, Model::installedFirmware) == "VK14 01.60");
    CHECK(stage.cell(0, Model::availableFirmware) == "VK14 01.61");
    CHECK(stage.cell(0, Model::colorTables) == "0160");
    CHECK(stage.cell(1, Model::lifetimeCounter) == "1234");
    CHECK(stage.cell(0, Model::usbSerialNumber) == "Unavailable");
    CHECK(stage.visibleText().contains("2 printers attached"));
    CHECK(stage.visibleText().contains("2.06 (build "));
    CHECK(stage.window().windowTitle() == "ZUL Printer Utility");
    stage.screenshot("two-printers");
}

TEST_CASE("the details of a printer with many color tables name every table and checksum") {
    Stage stage({.printers = {quick("VK28")}, .admittedProducts = {0x9001}});
    stage.waitForDeviceInfo();
    stage.waitFor("the last checksum", [&] { return stage.detailsText().contains("Checksum of color table 620 HD"); });
    const QString details = stage.detailsText();
    for (const char* table : {"Color table\n", "Color table 600\n", "Color table 610\n", "Color table 620\n",
                              "Color table 300 HD\n", "Color table 600 HD\n", "Color table 610 HD\n",
                              "Color table 620 HD\n", "1284 device ID\n", "Location\n1-1", "USB vendor\n"}) {
        CHECK_MESSAGE(details.contains(table), table << " in " << details.toStdString());
    }
    CHECK(stage.cell(0, Model::colorTables).contains("620HD:\u00A00100"));
    stage.screenshot("many-tables");
}

TEST_CASE("a window without printers asks to connect one") {
    Stage stage({.printers = {}});
    stage.waitFor("the empty page",
                  [&] { return stage.visibleText().contains("Connect a ZUL printer by USB and switch it on."); });
    CHECK(stage.visibleText().contains("0 printers attached"));
    stage.screenshot("empty");
}

TEST_CASE("a detached printer is removed from the table and returns with its device info") {
    Stage stage({.printers = {quick("VK14", "serial=111111"), quick("VK14", "serial=222222")}});
    stage.waitForDeviceInfo();
    stage.bus().unplug(0);
    stage.waitFor("one row", [&] { return stage.rows() == 1; });
    CHECK(stage.cell(0, Model::serialNumber) == "222222");
    CHECK(stage.highlightedRow() == 0);
    stage.bus().plug(0);
    stage.waitFor("two rows", [&] { return stage.rows() == 2; });
    stage.waitForDeviceInfo();
    CHECK(stage.cell(1, Model::serialNumber) == "111111");
    stage.bus().unplug(0);
    stage.bus().unplug(1);
    stage.waitFor("the empty page", [&] { return stage.visibleText().contains("Connect a ZUL printer"); });
    CHECK(stage.window().selection() == nullptr);
}

TEST_CASE("a printer that may not be opened is reported with its device node and advice") {
    Stage stage({.printers = {}});
    const auto service = std::make_shared<ScriptedService>(std::make_shared<ScriptedInterface>());
    service->createCode = kIOReturnNotPrivileged;
    service->location = "1-7";
    service->node = "/dev/bus/usb/001/009";
    ServiceRegistry& registry = stage.program().session().registry;
    const ServiceToken token = registry.serviceArrived(service);
    stage.waitFor("the notice", [&] {
        return stage.visibleText().contains(
            "The printer at 1-7 may not be used: no right to open /dev/bus/usb/001/009");
    });
    CHECK(stage.visibleText().contains("70-zul-printer-utility.rules"));
    CHECK_FALSE(stage.visibleText().contains("Connect a ZUL printer")); // it is connected
    CHECK_FALSE(stage.visibleText().contains("0 printers attached"));
    auto* const notice = stage.window().findChild<QLabel*>("notice");
    CHECK(QAccessible::queryAccessibleInterface(notice)->text(QAccessible::Name).contains("/dev/bus/usb/001/009"));
    stage.waitFor("no rows", [&] { return stage.rows() == 0; });
    stage.screenshot("no-right");
    registry.serviceTerminated(token);
    stage.waitFor("the notice to disappear", [&] { return !stage.visibleText().contains("/dev/bus/usb/001/009"); });
    CHECK(stage.visibleText().contains("Connect a ZUL printer"));
    CHECK(stage.visibleText().contains("0 printers attached"));
}

TEST_CASE("a model that is not admitted is reported with the option that admits it while it is attached") {
    Stage stage({.printers = {quick("VK28")}});
    const auto isReported = [&] { return stage.visibleText().contains("--admit-product 0x9001"); };
    stage.waitFor("the notice", isReported);
    stage.waitFor("no rows", [&] { return stage.rows() == 0; });
    stage.bus().unplug(0);
    stage.waitFor("the notice to disappear", [&] { return !isReported(); });
    stage.bus().plug(0);
    stage.waitFor("the notice again", isReported);
}

TEST_CASE("the status column is hidden at first, and the header's menu shows it") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    auto& header = *stage.findA<QTableView>("Printers").horizontalHeader();
    CHECK(header.isSectionHidden(Model::status));
    CHECK_FALSE(header.isSectionHidden(Model::state));
    Q_EMIT header.customContextMenuRequested({});
    auto* const menu = stage.window().findChild<QMenu*>("columnMenu");
    REQUIRE(menu != nullptr);
    for (QAction* action : menu->actions()) {
        CHECK(action->text() != "State"); // always shown
        if (action->text() == "Status") action->trigger();
    }
    CHECK_FALSE(header.isSectionHidden(Model::status));
    CHECK(stage.cell(0, Model::status) == "Idle");
    menu->close();
}

TEST_CASE("the widths and the order of the columns are remembered") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    auto& header = *stage.window().findChild<QTableView*>("table")->horizontalHeader();
    header.resizeSection(Model::installedFirmware, 222);
    header.moveSection(header.visualIndex(Model::serialNumber), 1);
    SUBCASE("by closing the window") {
        stage.window().close();
    }
    SUBCASE("by an alert") {
        stage.click("Update Firmware…");
        stage.waitForAlert("Attention:");
        stage.answer("Quit");
    }
    CHECK(stage.hasEnded());
    auto& session = stage.program().session();
    ui::AlertPresenter alerts;
    ui::WindowApplication application([] {});
    ui::MainWindow second(session, alerts, application);
    second.begin();
    auto& again = *second.findChild<QTableView*>("table")->horizontalHeader();
    CHECK(again.sectionSize(Model::installedFirmware) == 222);
    CHECK(again.visualIndex(Model::serialNumber) == 1);
}

TEST_CASE("the action for the USB serial number shows the setting, and that a model has none") {
    const auto actionOf = [](Stage& stage) { return stage.window().findChild<QAction*>("actionSerial"); };
    {
        Stage stage({.printers = {quick("VK14")}});
        stage.waitForDeviceInfo();
        CHECK_FALSE(actionOf(stage)->isEnabled());
        CHECK_FALSE(actionOf(stage)->isChecked());
        CHECK(actionOf(stage)->toolTip() == "This model has no such setting.");
    }
    for (const bool isOn : {true, false}) {
        Stage stage(
            {.printers = {quick("VK26", isOn ? "usb-serial=on" : "usb-serial=off")}, .admittedProducts = {0x8B01}});
        stage.waitForDeviceInfo();
        stage.waitFor("the setting",
                      [&] { return stage.cell(0, Model::usbSerialNumber) == (isOn ? "Enabled" : "Disabled"); });
        CHECK(actionOf(stage)->isEnabled());
        CHECK(actionOf(stage)->isChecked() == isOn);
    }
}

TEST_CASE("firmware that is newer than the installed one is marked without color, and equal firmware is not") {
    Stage stage({.printers = {quick("VK14"), quick("VK14", "firmware=VK14 01.61")}});
    stage.waitForDeviceInfo();
    const auto& model = *stage.window().findChild<QTableView*>("table")->model();
    const auto at = [&](int row, int role) { return model.data(model.index(row, Model::availableFirmware), role); };
    CHECK(at(0, Qt::FontRole).value<QFont>().bold());
    CHECK(at(0, Qt::ToolTipRole).toString() == "Newer than the installed firmware");
    CHECK(at(0, Qt::AccessibleDescriptionRole).toString() == "Newer than the installed firmware");
    CHECK_FALSE(at(1, Qt::FontRole).isValid());
    CHECK(at(1, Qt::ToolTipRole).toString() == "VK14 01.61");
    CHECK(at(1, Qt::AccessibleDescriptionRole).toString() == "");
}

TEST_CASE("every control has a name for a screen reader and can be reached with the keyboard") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    CHECK(stage.namelessControls().join(", ").toStdString() == "");
    stage.window().findChild<QTableView*>("table")->setFocus();
    stage.tabTo("Details of the selected printer");
    stage.tabTo("Printers");
    stage.supervisor().begin(stage.printers().front(), UpdateSupervisor::Equal::install);
    stage.waitFor("the agreement", [&] { return stage.alert().has_value(); });
    stage.bus().unplug(0);
    stage.bus().plug(0);
    stage.click("I Agree");
    stage.answer("Continue");
    stage.waitForAlert("Printer Error");
    stage.answer("Cancel");
    stage.waitFor("the result", [&] { return stage.find("Close this report") != nullptr; });
    CHECK(stage.namelessControls().join(", ").toStdString() == "");
    // In the order on the screen.
    stage.window().findChild<QTableView*>("table")->setFocus();
    for (const char* name : {"Updates", "Close this report", "Details of the selected printer"}) {
        stage.press(Qt::Key_Tab);
        CHECK(QApplication::focusWidget()->accessibleName().toStdString() == name);
    }
    for (const QAction* top : stage.window().menuBar()->actions()) {
        for (const QAction* action : top->menu()->actions()) {
            if (action->isSeparator() || action->menu() != nullptr) continue;
            CHECK_MESSAGE(!action->toolTip().isEmpty(), action->text().toStdString());
            CHECK_MESSAGE(!action->shortcut().isEmpty(), action->text().toStdString());
        }
    }
}

} // namespace zul::test
