// The whole update as the operator does it, and what the window shows meanwhile. GUI thread.
#include "window/Updates.h"

#include "ui/PrinterTableModel.h"
#include "ui/UpdateCard.h"
#include "virtual_printer/VirtualBus.h"

#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollArea>
#include <algorithm>
#include <doctest/doctest.h>

namespace zul::test {

namespace {

using Model = ui::PrinterTableModel;

} // namespace

TEST_CASE("with the mouse an update goes from the button to the report, and the table shows the new version") {
    Stage stage({.printers = {quick("VK14", "serial=111111")}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    const auto agreement = stage.waitForAlert("Attention:");
    CHECK(agreement.message ==
          "This update tool will upgrade the printer firmware to version VK14 01.61. This process cannot be undone");
    stage.screenshot("agreement");
    stage.click("I Agree");
    stage.answer("Continue");
    stage.waitForAlert(kConfirmTitle);
    stage.screenshot("confirmation");
    stage.answer("Update Firmware to VK14 01.61");
    const auto report = stage.waitForAlert(kSuccessTitle);
    CHECK(report.message == "Firmware version updated from VK14 01.60 to VK14 01.61");
    CHECK(report.buttons == QStringList{"Finish"});
    CHECK(report.defaultButton == "Finish");
    CHECK(report.hasPicture);
    stage.screenshot("report");
    stage.answer("Finish");
    stage.settle();
    CHECK(stage.cell(0, Model::installedFirmware) == "VK14 01.61");
    CHECK(stage.cell(0, Model::colorTables) == "0161");
    CHECK(changesOnTheWire(stage) == std::vector<std::string>{"arrive", "FW_UPDFLASH_REWRITE", "leave", "arrive",
                                                              "FW_UPDFLASH_PROGRAM", "leave", "arrive", "TBL_CL",
                                                              "TBL_WTVersion", "TBL_WTCTRLD_UPDATE_CW", "TBL_WTVersion",
                                                              "TBL_WTCTRLD_UPDATE_CW"});
    CHECK(onlyUpdate(stage).verdict.isSuccess());
    CHECK(stage.visibleText().contains("Updated from VK14 01.60 to VK14 01.61. 2 color tables written."));
    CHECK(stage.supervisor().now() >= onlyUpdate(stage).endedAt);
    stage.click("Close this report");
    stage.waitFor("the report to close", [&] { return stage.supervisor().updates().empty(); });
    CHECK_FALSE(stage.window().findChild<QScrollArea*>("updates")->isVisible());
}

TEST_CASE("an update can be done with the keyboard alone") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    stage.window().findChild<QWidget*>("table")->setFocus();
    stage.press(Qt::Key_U, Qt::ControlModifier);
    stage.waitForAlert("Attention:");
    stage.tabTo("I Agree");
    stage.press(Qt::Key_Space);
    stage.tabTo("Continue");
    stage.press(Qt::Key_Space);
    stage.waitForAlert(kConfirmTitle);
    stage.tabTo("Update Firmware to VK14 01.61");
    stage.press(Qt::Key_Space);
    stage.waitForAlert(kSuccessTitle);
    stage.press(Qt::Key_Return);
    stage.waitFor("the alert to close", [&] { return !stage.alert(); });
    CHECK(stage.cell(0, Model::installedFirmware) == "VK14 01.61");
}

TEST_CASE("the window follows an update through its steps and both restarts") {
    Stage stage({.printers = {"VK14,restart=600,program=600,speed=1500000"}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    agreeAndConfirm(stage, "VK14 01.61");
    std::vector<std::string> steps;
    double furthest = 0;
    bool hasSeenBytes = false;
    bool wasDisabled = false;
    stage.waitFor("the report", [&] {
        const auto& update = stage.supervisor().updates().begin()->second;
        const std::string step = std::to_string(static_cast<int>(update.state.phase));
        if (steps.empty() || steps.back() != step) steps.push_back(step);
        CHECK(update.state.share() >= furthest);
        furthest = update.state.share();
        if (update.state.phase == UpdatePhase::writing && update.state.bytesDone > 0 && !hasSeenBytes) {
            const auto* bar = stage.window().findChild<QProgressBar*>();
            CHECK(bar->isVisible());
            hasSeenBytes = bar->text().contains(" of ");
            wasDisabled = !updateAction(stage).isEnabled();
            if (hasSeenBytes) stage.screenshot("update-under-way");
        }
        const auto shown = stage.alert();
        return shown && shown->title == kSuccessTitle;
    });
    CHECK(hasSeenBytes);
    CHECK(wasDisabled);
    for (const UpdatePhase phase :
         {UpdatePhase::loaderAway, UpdatePhase::writing, UpdatePhase::restarting, UpdatePhase::done}) {
        CHECK_MESSAGE(std::ranges::count(steps, std::to_string(static_cast<int>(phase))) > 0, static_cast<int>(phase));
    }
    stage.answer("Finish");
    stage.settle();
    CHECK(stage.visibleText().contains("✓ Color table 2 of 2"));
    CHECK(updateAction(stage).isEnabled());
}

TEST_CASE("two printers are updated at the same time, each with a report of its own") {
    Stage stage({.printers = {quick("VK14", "serial=111111"), quick("VK14", "serial=222222,program=600")}});
    stage.waitForDeviceInfo();
    for (const int row : {1, 0}) {
        stage.printers().at(static_cast<std::size_t>(row))->getPrinterFirmwareVersion(); // it becomes the selected one
        stage.waitFor("the row", [&] { return stage.highlightedRow() == row; });
        stage.click("Update Firmware…");
        agreeAndConfirm(stage, "VK14 01.61");
    }
    for (int report = 0; report < 2; ++report) {
        stage.waitForAlert(kSuccessTitle);
        stage.waitFor("both cards visible", [&] {
            return std::ranges::all_of(stage.window().findChildren<ui::UpdateCard*>(), [](const auto* card) {
                return card->visibleRegion().boundingRect().height() == card->height();
            });
        });
        stage.screenshot("two-reports");
        stage.answer("Finish");
    }
    stage.settle();
    REQUIRE(stage.supervisor().updates().size() == 2);
    for (const auto& [key, update] : stage.supervisor().updates()) {
        CHECK(update.verdict.isSuccess());
    }
    CHECK(stage.cell(0, Model::installedFirmware) == "VK14 01.61");
    CHECK(stage.cell(1, Model::installedFirmware) == "VK14 01.61");
}

TEST_CASE("a cancelled update is reported as declined, and changes nothing in the printer") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    stage.waitForAlert("Attention:");
    stage.click("I Agree");
    stage.answer("Continue");
    stage.waitForAlert(kConfirmTitle);
    stage.press(Qt::Key_Escape);
    stage.waitFor("the result", [&] { return stage.visibleText().contains("Not updated: it was declined."); });
    CHECK(updateAction(stage).isEnabled());
    CHECK(stage.cell(0, Model::installedFirmware) == "VK14 01.60");
    CHECK(changesOnTheWire(stage) == std::vector<std::string>{"arrive"});
}

TEST_CASE("a window that was made larger during updates can be made smaller again") {
    Stage stage({.printers = {quick("VK14"), quick("VK14"), quick("VK14"), quick("VK14")}});
    stage.waitForDeviceInfo();
    for (const auto& printer : stage.printers()) stage.supervisor().begin(printer, UpdateSupervisor::Equal::install);
    stage.waitFor("all cards", [&] { return stage.window().findChildren<ui::UpdateCard*>().size() == 4; });
    const QSize before = stage.window().size();
    stage.window().resize(before + QSize(0, 250));
    stage.waitFor("a larger window", [&] { return stage.window().height() == before.height() + 250; });
    stage.window().resize(before);
    stage.waitFor("the window as before", [&] { return stage.window().size() == before; });
}

TEST_CASE("a failed update marks the step that failed, and marks no later step as done") {
    Stage stage({.printers = {quick("VK14", "fault=stall@CTRLD_UPDATE_CW#2")}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    agreeAndConfirm(stage, "VK14 01.61");
    stage.waitForAlert("The update is not complete."); // the supervisor's correction, before the engine's report
    stage.answer("OK");
    stage.waitForAlert(kSuccessTitle); // the engine reports a success after one sent table
    stage.answer("Finish");
    CHECK(onlyUpdate(stage).verdict.result == UpdateResult::tablesMissing);
    const QString text = stage.visibleText();
    CHECK(text.contains("✗ The update is not complete: only 1 of 2 color tables were sent"));
    CHECK(text.contains("⚠ Leave the printer switched on and start the update again."));
    CHECK(text.contains("✓ Writing firmware"));
    CHECK(text.contains("✗ Color table 2 of 2"));
    CHECK(text.contains("○ Done"));
    CHECK(stage.find("Color table 2 of 2: not done") != nullptr);
    CHECK(stage.find("Done: not started") != nullptr);
    CHECK_FALSE(stage.window().findChild<QProgressBar*>()->isVisible());
    stage.screenshot("failed");
}

TEST_CASE("an update shows its elapsed time and the printer's last sign of life") {
    Stage stage({.printers = {quick("VK14", "fault=never-back@FLASH_REWRITE")}, .speed = 20});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    agreeAndConfirm(stage, "VK14 01.61");
    const QRegularExpression times("Elapsed: (\\d+):(\\d\\d) · last sign of life (\\d+) seconds? ago");
    const auto shown = [&] { return times.match(stage.visibleText()); };
    stage.waitFor("times", [&] { return shown().hasMatch() && shown().captured(3).toInt() >= 5; });
    const int before = shown().captured(3).toInt();
    stage.waitFor("more of them", [&] { return shown().captured(3).toInt() > before; });
    CHECK(60 * shown().captured(1).toInt() + shown().captured(2).toInt() >= shown().captured(3).toInt());
}

TEST_CASE("during an update every action of its printer is disabled and says why") {
    Stage stage({.printers = {"VK26,restart=3000,program=3000"}, .admittedProducts = {0x8B01}});
    stage.waitForDeviceInfo();
    const char* const names[] = {"actionUpdate", "actionRefresh",  "actionHotPlug",  "actionSerial",
                                 "actionClaim",  "actionCounterA", "actionCounterB", "actionCounterM"};
    for (const char* name : names) {
        const auto* action = stage.window().findChild<QAction*>(name);
        CHECK_MESSAGE(action->isEnabled(), name);
        CHECK_MESSAGE(action->toolTip() != "This printer is being updated.", name);
    }
    stage.triggerMenu("Printer", "Reset Counter A…"); // this question is still shown when the update begins
    stage.waitFor("the question", [&] { return stage.alert().has_value(); });
    stage.supervisor().begin(stage.printers().front(), UpdateSupervisor::Equal::install);
    for (const char* name : names) {
        const auto* action = stage.window().findChild<QAction*>(name);
        CHECK_MESSAGE(!action->isEnabled(), name);
        CHECK_MESSAGE(action->toolTip() == "This printer is being updated.", name);
    }
    stage.answer("Reset Counter");
    stage.waitForAlert("Attention:");
    stage.settle();
    CHECK(TemporaryFolder::read(stage.journalFile()).find("MNT_WTCOUNTER_CLR") == std::string::npos);
}

TEST_CASE("a printer found in its loader is updated from its alert, and the window follows that update, too") {
    Stage stage({.printers = {quick("VK14", "mode=loader")}});
    stage.waitFor("its status", [&] {
        return !stage.printers().empty() && stage.printers()[0]->printerStatus() == "Firmware Update Mode";
    });
    stage.settle();
    stage.bus().unplug(0);
    stage.waitFor("no rows", [&] { return stage.rows() == 0; });
    stage.bus().plug(0);
    stage.waitForAlert("Attention:");
    stage.answer("Update Firmware");
    stage.waitForAlert(kSuccessTitle);
    stage.answer("Finish");
    CHECK(onlyUpdate(stage).verdict.isSuccess());
}

TEST_CASE("\"Quit\" in the agreement ends the program") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    stage.waitForAlert("Attention:");
    stage.answer("Quit");
    CHECK(stage.hasEnded());
}

TEST_CASE("Ctrl+Q ends the program while an alert is shown, too") {
    Stage stage({.printers = {quick("VK14", "firmware=VK14 01.70")}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    stage.waitForAlert("Attention:");
    stage.click("I Agree");
    stage.answer("Continue");
    stage.waitForAlert("Firmware update not needed");
    stage.press(Qt::Key_Q, Qt::ControlModifier);
    CHECK(stage.hasEnded());
}

TEST_CASE("quitting during an update asks first, and the update continues by default") {
    Stage stage({.printers = {"VK14,restart=3000,program=3000"}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    agreeAndConfirm(stage, "VK14 01.61");
    stage.waitFor("the first restart", [&] { return onlyUpdate(stage).state.phase >= UpdatePhase::enteringLoader; });
    const QString question = "A printer is being updated. Quit anyway?";
    SUBCASE("from the menu") {
        stage.triggerMenu("File", "Quit");
    }
    SUBCASE("with the keyboard") {
        stage.press(Qt::Key_Q, Qt::ControlModifier);
    }
    SUBCASE("with the close box") {
        stage.window().close();
    }
    const auto asked = stage.waitForAlert(question);
    CHECK(asked.buttons == QStringList{"Keep Updating", "Quit"});
    CHECK(asked.defaultButton == "Keep Updating");
    CHECK(asked.isModal);
    CHECK_FALSE(stage.hasEnded());
    stage.press(Qt::Key_Escape);
    stage.waitFor("the question to close", [&] { return !stage.alert(); });
    CHECK_FALSE(stage.hasEnded());
    CHECK(stage.window().isVisible());
    stage.triggerMenu("File", "Quit");
    stage.waitForAlert(question);
    stage.answer("Quit");
    CHECK(stage.hasEnded());
}

TEST_CASE("\"Quit\" in the agreement of one printer does not end the update of another without a question") {
    Stage stage({.printers = {"VK14,restart=3000,program=3000", quick("VK14")}});
    stage.waitForDeviceInfo();
    const auto all = stage.printers();
    stage.supervisor().begin(all[0], UpdateSupervisor::Equal::install);
    agreeAndConfirm(stage, "VK14 01.61");
    stage.waitFor("the first restart", [&] { return stage.supervisor().isAnyBetweenCommands(); });
    stage.supervisor().begin(all[1], UpdateSupervisor::Equal::install);
    stage.waitForAlert("Attention:");
    stage.answer("Quit");
    stage.waitForAlert("A printer is being updated. Quit anyway?");
    CHECK_FALSE(stage.hasEnded());
    stage.answer("Quit");
    CHECK(stage.hasEnded());
}

TEST_CASE("the system's request to end raises no question and is met once the whole image is sent") {
    Stage stage({.printers = {"VK14,restart=500,program=30000,speed=100000000"}, .speed = 4});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    agreeAndConfirm(stage, "VK14 01.61");
    stage.waitFor("the first restart", [&] { return onlyUpdate(stage).state.phase >= UpdatePhase::enteringLoader; });
    stage.window().endAsked();
    CHECK_FALSE(stage.hasEnded());
    CHECK(stage.shownAlerts() == 0);
    stage.waitFor("the end", [&] { return stage.hasEnded(); });
    CHECK(onlyUpdate(stage).verdict.result == UpdateResult::stopped);
    CHECK(changesOnTheWire(stage).back() == "FW_UPDFLASH_PROGRAM");
}

TEST_CASE("the system's request to end is met at once while no printer is in the middle of its update") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    stage.waitForAlert("Attention:");
    stage.window().endAsked();
    CHECK(stage.hasEnded());
}

TEST_CASE("a printer with the same firmware and tables is updated again only after a question") {
    Stage stage({.printers = {quick("VK14", "firmware=VK14 01.61,tables=0161")}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    const auto question = stage.waitForAlert("VK14 01.61 is already installed. Install it again?");
    CHECK(question.buttons == QStringList{"Cancel", "Install Again"});
    CHECK(question.defaultButton == "Cancel");
    stage.answer("Cancel");
    CHECK(stage.supervisor().updates().empty());
    stage.click("Update Firmware…");
    stage.waitForAlert("VK14 01.61 is already installed. Install it again?");
    stage.answer("Install Again");
    stage.waitForAlert("Attention:");
}

} // namespace zul::test
