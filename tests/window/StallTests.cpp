// Updates that stall, wait or are refused: what the window shows, what can be started again, and what can be dismissed.
// GUI thread.
#include "window/Updates.h"

#include "ui/DetailsPane.h"
#include "ui/PrinterTableModel.h"
#include "virtual_printer/VirtualBus.h"

#include <QScrollArea>
#include <QTableView>
#include <algorithm>
#include <chrono>
#include <doctest/doctest.h>

namespace zul::test {

namespace {

using std::chrono::milliseconds;

const char* const kDetails = "Details of the selected printer";

void waitForDetailsOfHeight(Stage& stage, int height) {
    INFO("now " << stage.findA<ui::DetailsPane>(kDetails).height() << ", before " << height);
    stage.waitFor("the details as large as before",
                  [&] { return stage.findA<ui::DetailsPane>(kDetails).height() == height; });
}

} // namespace

TEST_CASE("a printer that does not return from its restart gets advice, and a late return still ends in success") {
    Stage stage({.printers = {quick("VK14", "fault=never-back@FLASH_REWRITE")}});
    stage.waitForDeviceInfo();
    const int before = stage.findA<ui::DetailsPane>(kDetails).height();
    stage.supervisor().setSettings({.stallAfter = milliseconds(700)});
    stage.click("Update Firmware…");
    agreeAndConfirm(stage, "VK14 01.61");
    stage.waitFor("advice", [&] {
        return stage.visibleText().contains("The printer has not restarted into its loader. Leave it switched on");
    });
    // Its row stays, and cannot be selected.
    const auto& model = *stage.findA<QTableView>("Printers").model();
    const QModelIndex state = model.index(0, ui::PrinterTableModel::state);
    REQUIRE(stage.rows() == 1);
    CHECK(stage.printers().empty());
    CHECK(state.data().toString().startsWith("Restarting: The printer has not restarted into its loader."));
    CHECK(model.flags(state) == Qt::NoItemFlags);
    CHECK(stage.visibleText().contains("1 printer: 1 is being updated"));
    CHECK_FALSE(stage.visibleText().contains("0 printers attached"));
    stage.screenshot("stalled");
    stage.bus().plug(0);
    stage.waitForAlert(kSuccessTitle);
    stage.answer("Finish");
    stage.waitFor("the state of the printer that is back", [&] { return state.data() == "Up to date"; });
    CHECK(stage.rows() == 1);
    CHECK(model.flags(state).testFlag(Qt::ItemIsSelectable));
    CHECK(stage.visibleText().contains("1 printer: 1 is up to date"));
    CHECK(onlyUpdate(stage).verdict.isSuccess());
    CHECK_FALSE(onlyUpdate(stage).isStalled);
    stage.click("Close this report");
    stage.waitFor("the report to close", [&] { return stage.supervisor().updates().empty(); });
    waitForDetailsOfHeight(stage, before);
}

TEST_CASE("a dismissed update lets the machine sleep, and is shown again when its printer returns") {
    for (const char* command : {"FLASH_REWRITE", "FLASH_PROGRAM"}) {
        CAPTURE(command);
        Stage stage({.printers = {quick("VK14", std::string("fault=never-back@") + command)}});
        stage.waitForDeviceInfo();
        const int before = stage.findA<ui::DetailsPane>(kDetails).height();
        stage.supervisor().setSettings({.stallAfter = milliseconds(700)});
        stage.click("Update Firmware…");
        agreeAndConfirm(stage, "VK14 01.61");
        stage.waitFor("advice",
                      [&] { return stage.visibleText().contains("If it does not come back, switch it off and on"); });
        CHECK(stage.supervisor().isAnyUnderWay());
        stage.click("Close this report");
        stage.waitFor("the card to close", [&] { return stage.find("Close this report") == nullptr; });
        CHECK_FALSE(stage.window().findChild<QScrollArea*>("updates")->isVisible());
        CHECK_FALSE(stage.supervisor().isAnyUnderWay());
        CHECK(stage.visibleText().contains("Connect a ZUL printer by USB and switch it on."));
        stage.bus().plug(0);
        stage.waitForAlert(kSuccessTitle);
        stage.answer("Finish");
        CHECK(onlyUpdate(stage).verdict.isSuccess());
        CHECK(stage.visibleText().contains("Updated from VK14 01.60 to VK14 01.61. 2 color tables written."));
        stage.click("Close this report");
        waitForDetailsOfHeight(stage, before);
    }
}

TEST_CASE("an unresponsive printer can be updated again once its update has stalled") {
    Stage stage({.printers = {quick("VK14", "fault=never-back@FLASH_REWRITE")}});
    stage.waitForDeviceInfo();
    const std::string key = stage.printers()[0]->keyUSBdevice();
    stage.supervisor().setSettings({.stallAfter = milliseconds(700)});
    stage.click("Update Firmware…");
    agreeAndConfirm(stage, "VK14 01.61");
    stage.waitFor("the restart", [&] { return onlyUpdate(stage).state.phase >= UpdatePhase::enteringLoader; });
    CHECK(stage.supervisor().reasonAgainst(key) == "This printer is being updated.");
    stage.waitFor("the stall", [&] { return onlyUpdate(stage).isStalled; });
    CHECK(stage.supervisor().reasonAgainst(key) == "");
}

TEST_CASE("an image that the printer does not take is no success, and a second start ends in one") {
    Stage stage({.printers = {quick("VK14", "fault=stay-in-loader@FLASH_PROGRAM")}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    agreeAndConfirm(stage, "VK14 01.61");
    stage.waitFor("the verdict", [&] { return !onlyUpdate(stage).isOpen(); });
    CHECK(onlyUpdate(stage).verdict.result == UpdateResult::imageNotTaken);
    CHECK(stage.visibleText().contains("✗ The update is not complete: the printer is still in firmware update mode"));
    CHECK(stage.visibleText().contains("start the update again: that completes it."));
    CHECK(updateAction(stage).isEnabled());
    stage.click("Update Firmware…");
    stage.waitForAlert("Attention:");
    stage.click("I Agree");
    stage.answer("Continue"); // no confirmation, because the printer is in its loader already
    stage.waitForAlert(kSuccessTitle);
    stage.answer("Finish");
    CHECK(onlyUpdate(stage).verdict.isSuccess());
}

TEST_CASE("a printer that replies but is not ready gets advice, and its update can be dismissed until it continues") {
    SUBCASE("after its restart") {
        Stage stage({.printers = {quick("VK14", "after-update=01000")}, .speed = 20});
        stage.waitForDeviceInfo();
        stage.click("Update Firmware…");
        agreeAndConfirm(stage, "VK14 01.61");
        stage.waitFor("advice", [&] {
            return stage.visibleText().contains("The printer reports: Cover Open. Leave it switched on");
        });
        CHECK(stage.visibleText().contains("Back, waiting until it is idle: Cover Open ("));
        CHECK_FALSE(updateAction(stage).isEnabled()); // it replies, so its update has not stalled
        CHECK(stage.program().session().sleepInhibitor.isWanted());
        stage.screenshot("waiting");
        stage.click("Close this report"); // waits until the button is there
        stage.waitFor("the card to close", [&] { return stage.find("Close this report") == nullptr; });
        CHECK_FALSE(stage.program().session().sleepInhibitor.isWanted());
        const auto lastSign = [&] { return onlyUpdate(stage).state.lastSign; };
        for (int answer = 0; answer < 2; ++answer) { // the second one comes after the first is handled
            const auto before = lastSign();
            stage.waitFor("another answer", [&] { return lastSign() > before; });
        }
        CHECK(stage.find("Close this report") == nullptr); // an equal reply does not show the card again
    }
    SUBCASE("before its first restart") {
        Stage stage({.printers = {quick("VK14", "status=00000:00000:01000")}, .speed = 20});
        stage.waitForDeviceInfo();
        stage.click("Update Firmware…");
        agreeAndConfirm(stage, "VK14 01.61");
        stage.waitFor("advice", [&] { return stage.visibleText().contains("The printer reports: Cover Open."); });
        CHECK(stage.visibleText().contains("Checking: Cover Open ("));
        CHECK(changesOnTheWire(stage) == std::vector<std::string>{"arrive"});
    }
    SUBCASE("and is shown again when it refuses to restart") {
        std::string statuses = "00000:00000";
        for (int answer = 0; answer < 40; ++answer) statuses += ":01000"; // two replies per second
        Stage stage(
            {.printers = {quick("VK14", "status=" + statuses + ":00000,fault=stall@FLASH_REWRITE")}, .speed = 4});
        stage.waitForDeviceInfo();
        auto& supervisor = stage.supervisor();
        supervisor.setSettings({.stallAfter = std::chrono::seconds(3)});
        stage.click("Update Firmware…");
        agreeAndConfirm(stage, "VK14 01.61");
        stage.waitFor("an update that can be dismissed", [&] { return onlyUpdate(stage).mayBeDismissed; });
        supervisor.dismiss(onlyUpdate(stage).state.key);
        CHECK(onlyUpdate(stage).isDismissed);
        stage.waitFor("the card again", [&] {
            return stage.visibleText().contains("✗ Not updated: the printer did not accept the command to restart.");
        });
    }
}

TEST_CASE("a printer that becomes unresponsive after its update was dismissed can be updated again") {
    std::string settings = "after-update=01000";
    for (int question = 40; question < 60; ++question) settings += ",fault=silence@STATUS#" + std::to_string(question);
    Stage stage({.printers = {quick("VK14", settings)}, .speed = 4});
    stage.waitForDeviceInfo();
    auto& supervisor = stage.supervisor();
    supervisor.setSettings({.stallAfter = std::chrono::seconds(8)}); // a loader does not reply for 5 s by design
    const std::string key = stage.printers()[0]->keyUSBdevice();
    stage.click("Update Firmware…");
    agreeAndConfirm(stage, "VK14 01.61");
    stage.waitFor("an update that can be dismissed", [&] { return onlyUpdate(stage).mayBeDismissed; });
    CHECK_FALSE(onlyUpdate(stage).isStalled);
    supervisor.dismiss(key);
    CHECK(supervisor.reasonAgainst(key) == "This printer is being updated.");
    stage.waitFor("the stall", [&] { return onlyUpdate(stage).isStalled; });
    CHECK(stage.find("Close this report") == nullptr);
    CHECK(supervisor.reasonAgainst(key) == "");
}

TEST_CASE("a printer that is unresponsive after its restart gets no second image") {
    std::string settings;
    for (int question = 5; question < 60; ++question) settings += ",fault=silence@STATUS#" + std::to_string(question);
    Stage stage({.printers = {quick("VK14", settings.substr(1))}, .speed = 20});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    agreeAndConfirm(stage, "VK14 01.61");
    stage.waitFor("the stall", [&] { return onlyUpdate(stage).isStalled; });
    CHECK(onlyUpdate(stage).state.phase == UpdatePhase::restarted);
    CHECK(stage.visibleText().contains("The printer has new firmware and does not answer."));
    // The engine still has the status text of the loader.
    stage.waitFor("the reason", [&] { return !updateAction(stage).isEnabled(); });
    CHECK(updateAction(stage).toolTip().contains("Switch it off and on: its update continues."));
    // It answers after all, and the update comes to its end.
    stage.waitForAlert(kSuccessTitle);
    stage.answer("Finish");
    CHECK(onlyUpdate(stage).verdict.isSuccess());
    const auto changes = changesOnTheWire(stage);
    CHECK(std::ranges::count(changes, "FW_UPDFLASH_PROGRAM") == 1);
}

TEST_CASE("a printer that does not leave after its image gets a second one only after a question") {
    Stage stage({.printers = {"VK14,restart=150,program=60000,speed=100000000"}, .speed = 20});
    stage.waitForDeviceInfo();
    stage.supervisor().setSettings({.stallAfter = std::chrono::seconds(8)});
    stage.click("Update Firmware…");
    agreeAndConfirm(stage, "VK14 01.61");
    stage.waitFor("the programming", [&] { return onlyUpdate(stage).state.phase == UpdatePhase::programming; });
    stage.waitFor("the stall", [&] { return onlyUpdate(stage).isStalled && updateAction(stage).isEnabled(); });
    CHECK_FALSE(stage.window().findChild<QAction*>("actionHotPlug")->isEnabled()); // it may be writing its flash
    stage.click("Update Firmware…");
    const auto question = stage.waitForAlert("Start the update of VK14 000001 (1-1) again?");
    CHECK(question.message.startsWith("The printer has the firmware and has not restarted yet."));
    CHECK(question.message.endsWith("which may damage a printer that is still working."));
    CHECK(question.buttons == QStringList{"Cancel", "Start Again"});
    CHECK(question.defaultButton == "Cancel");
    SUBCASE("and none after \"Cancel\"") {
        stage.answer("Cancel");
        CHECK(stage.shownAlerts() == 0);
    }
    SUBCASE("and its first update is still followed after \"Start Again\"") {
        stage.answer("Start Again");
        stage.waitForAlert("Attention:");
        CHECK(onlyUpdate(stage).state.phase == UpdatePhase::programming);
        CHECK_FALSE(updateAction(stage).isEnabled());
        stage.program().alerts().dismissAll(); // the agreement is not answered
    }
    CHECK(onlyUpdate(stage).isOpen());
    const auto changes = changesOnTheWire(stage);
    CHECK(std::ranges::count(changes, "FW_UPDFLASH_PROGRAM") == 1);
    // It restarts after all: the first update ends and is reported as a success.
    stage.waitForAlert(kSuccessTitle);
    stage.answer("Finish");
    CHECK(onlyUpdate(stage).verdict.isSuccess());
}

TEST_CASE("the update of a printer that programs its flash stalls only after 90 s, and the advice is to leave it on") {
    Stage stage({.printers = {"VK14,restart=150,program=200000,speed=100000000"}, .speed = 20});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    agreeAndConfirm(stage, "VK14 01.61");
    stage.waitFor("the programming", [&] { return onlyUpdate(stage).state.phase == UpdatePhase::programming; });
    const auto silence = [&] { return stage.supervisor().now() - onlyUpdate(stage).state.lastSign; };
    stage.waitFor("the stall", [&] {
        if (onlyUpdate(stage).isStalled) CHECK(silence() >= std::chrono::seconds(90));
        return onlyUpdate(stage).isStalled;
    });
    stage.click("Update Firmware…");
    CHECK(stage.waitForAlert("Start the update of VK14 000001 (1-1) again?")
              .message.startsWith("The printer has the firmware and has not restarted yet. Leave it switched on."));
    stage.answer("Cancel");
    stage.waitForAlert(kSuccessTitle);
    stage.answer("Finish");
}

TEST_CASE("the stall of one printer is reported while other printers keep replying") {
    Stage stage({.printers = {quick("VK14", "after-update=01000"), quick("VK14", "after-update=01000"),
                              quick("VK14", "fault=never-back@FLASH_REWRITE")},
                 .speed = 10});
    stage.waitForDeviceInfo();
    auto& supervisor = stage.supervisor();
    const std::string stalled = stage.printers()[2]->keyUSBdevice();
    const auto all = stage.printers();
    for (const auto& printer : all) {
        supervisor.begin(printer, UpdateSupervisor::Equal::install);
        agreeAndConfirm(stage, "VK14 01.61");
    }
    stage.waitFor("the stall", [&] { return supervisor.updates().at(stalled).isStalled; });
    CHECK_FALSE(supervisor.updates().at(all[0]->keyUSBdevice()).isStalled);
}

TEST_CASE("the report on a printer that refuses to restart says why it is unchanged") {
    Stage stage({.printers = {quick("VK14", "fault=stall@FLASH_REWRITE")}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    agreeAndConfirm(stage, "VK14 01.61");
    stage.waitFor("the end", [&] { return !onlyUpdate(stage).isOpen(); });
    CHECK(onlyUpdate(stage).verdict.isUntouched());
    CHECK(stage.visibleText().contains("✗ Not updated: the printer did not accept the command to restart."));
    CHECK(stage.visibleText().contains("⚠ Nothing has been changed in the printer. Start the update again."));
    CHECK(updateAction(stage).isEnabled());
}

} // namespace zul::test
