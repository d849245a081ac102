// Every alert on the screen: its texts, the order of its buttons, the default button, Escape, and the check box of the
// agreement. Run on the GUI thread with embedded printers.
#include "window/Stage.h"
#include "window/Updates.h"

#include "platform/dispatch/Queue.h"
#include "support/ChangedArchive.h"
#include "ui/Pictures.h"
#include "ui/PrinterTableModel.h"
#include "virtual_printer/VirtualBus.h"

#include <QAction>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QTest>
#include <QWindow>
#include <algorithm>
#include <doctest/doctest.h>
#include <future>

namespace zul::test {

namespace {

const QString kCorruptionTitle = "-- File corruption --\n\nThere is a problem with the firmware files.";
constexpr const char* kFirmwareFile = "VK14 01.61.fw";

void checkAlert(const ShownAlert& shown, const QString& message, const QStringList& buttons) {
    CHECK(shown.message == message);
    CHECK(shown.buttons == buttons);
    CHECK(shown.defaultButton == buttons.first());
    CHECK(shown.hasPicture);
    CHECK_FALSE(shown.isModal);
    CHECK(shown.box->windowModality() == Qt::WindowModal);
    CHECK((shown.box->windowFlags() & (Qt::FramelessWindowHint | Qt::WindowCloseButtonHint)) ==
          Qt::FramelessWindowHint);
    CHECK(shown.box->accessibleName() == shown.title);
}

void agree(Stage& stage) {
    stage.click("Update Firmware…");
    stage.waitForAlert("Attention:");
    stage.click("I Agree");
    stage.answer("Continue");
}

bool isContinueEnabled(Stage& stage) {
    return stage.find("Continue")->isEnabled();
}

} // namespace

TEST_CASE("the agreement follows its box, and \"Quit\" is its default") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    const auto shown = stage.waitForAlert("Attention:");
    checkAlert(
        shown,
        "This update tool will upgrade the printer firmware to version VK14 01.61. This process cannot be undone",
        {"Quit", "Continue"});
    CHECK(shown.checkBox == "I Agree");
    CHECK_FALSE(shown.box->checkBox()->isChecked());
    CHECK(shown.box->checkBox()->minimumSize() == QSize(72, 18));
    CHECK(shown.box->checkBox()->width() >= 72);
    CHECK(shown.box->checkBox()->height() >= 18);
    CHECK_FALSE(isContinueEnabled(stage));
    stage.click("I Agree");
    CHECK(isContinueEnabled(stage));
    stage.click("I Agree");
    CHECK_FALSE(isContinueEnabled(stage));
    stage.press(Qt::Key_Escape);
    CHECK_FALSE(shown.box->close()); // what a desktop's own keys ask for
    stage.settle();
    CHECK(stage.alert().has_value()); // there is no "Cancel" for Escape to press
    CHECK_FALSE(stage.hasEnded());
}

TEST_CASE("Return in the agreement presses \"Quit\"") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    stage.waitForAlert("Attention:");
    stage.click("I Agree"); // the focus is on the box now
    stage.press(Qt::Key_Return);
    stage.waitFor("the end", [&] { return stage.hasEnded(); });
}

TEST_CASE("the agreement for a VK-RZ7 with old firmware asks to use up its media and names the program's version") {
    Stage stage({.printers = {quick("VK-RZ7", "firmware=VK-RZ7 02.03")}, .admittedProducts = {5}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    checkAlert(stage.waitForAlert("Attention:"),
               "This update tool is for the ZUL RZ7 printer. It will upgrade the printer to 2.06.\n\nOnce updated, the "
               "RZ7 printer will REQUIRE the use of RZ7HS media packs. Please use up all RZ7 media before using this "
               "update tool. This process cannot be undone.",
               {"Quit", "Continue"});
    stage.screenshot("agreement-rz7");
}

TEST_CASE("a damaged firmware file is reported with advice before the first question, and no command is sent") {
    const ChangedArchive archive(ZUL_SAMPLE_ARCHIVE);
    archive.damage(kFirmwareFile);
    Stage stage({.printers = {quick("VK14")}, .firmwareArchive = archive.folder()});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    stage.waitFor("the reason", [&] { return stage.visibleText().contains("Not updated: VK14 01.61.fw in "); });
    CHECK(stage.visibleText().contains("is damaged: it does not match its digest."));
    CHECK(stage.visibleText().contains("zulctl archive verify "));
    CHECK_FALSE(stage.alert());
    CHECK(std::ranges::count(changesOnTheWire(stage), "FW_UPDFLASH_REWRITE") == 0);
}

TEST_CASE("with damaged files there is no question whether to install an equal version again") {
    const ChangedArchive archive(ZUL_SAMPLE_ARCHIVE);
    archive.damage(kFirmwareFile);
    Stage stage({.printers = {quick("VK14", "firmware=VK14 01.61,tables=0161")}, .firmwareArchive = archive.folder()});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    stage.waitFor("the reason", [&] { return stage.visibleText().contains("Not updated: VK14 01.61.fw in "); });
    CHECK_FALSE(stage.alert());
}

TEST_CASE("files that are damaged after the agreement end the update with an alert that has only OK") {
    const ChangedArchive archive(ZUL_SAMPLE_ARCHIVE);
    Stage stage({.printers = {quick("VK14")}, .firmwareArchive = archive.folder()});
    stage.waitForDeviceInfo();
    agree(stage);
    stage.waitForAlert(kConfirmTitle);
    archive.damage(kFirmwareFile);
    stage.answer("Update Firmware to VK14 01.61");
    checkAlert(stage.waitForAlert(kCorruptionTitle), "Contact customer support.", {"OK"});
    stage.answer("OK");
    CHECK_FALSE(stage.hasEnded());
}

TEST_CASE("files that are damaged while the printer restarts leave it in its loader with an alert") {
    const ChangedArchive archive(ZUL_SAMPLE_ARCHIVE);
    Stage stage({.printers = {"VK14,restart=1000,speed=100000000"}, .firmwareArchive = archive.folder()});
    stage.waitForDeviceInfo();
    agree(stage);
    stage.waitForAlert(kConfirmTitle);
    stage.answer("Update Firmware to VK14 01.61");
    stage.waitFor("the printer to leave", [&] { return stage.printers().empty(); });
    archive.damage(kFirmwareFile);
    checkAlert(stage.waitForAlert("There was a problem with the firmware file!"),
               "This application may be damaged. Please download a new copy.", {"OK"});
    CHECK(stage.visibleText().contains(
        "The firmware files are damaged. The printer is in firmware update mode: leave it switched on"));
    CHECK(stage.window().findChild<QAction*>("actionUpdate")->isEnabled()); // to try again once the files are replaced
    stage.answer("OK");
}

// No printer that can be updated is without tables, so the stored list is cut short on the way.
TEST_CASE("an update without tables is reported as a problem, with both versions") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    const auto printer = stage.printers()[0];
    printer->deviceInfoDict()->setString(HOLVEN_TBPrinterFirmwareVersionPrevious, "VK14 01.50");
    std::promise<void> listIsCut;
    printer->printerCommandQueue()->async([&] { listIsCut.get_future().wait(); });
    printer->finishFirmwareUpdate();
    printer->deviceInfoDict()->set(cFirmwareFilenames, std::vector<std::string>{kFirmwareFile, "VK14_300_0161.cwd"});
    listIsCut.set_value();
    checkAlert(stage.waitForAlert("There was a problem with the firmware update!"),
               "Previous firmware version: VK14 01.50 current version: VK14 01.60", {"OK"});
    stage.answer("OK");
}

TEST_CASE("a printer with newer firmware needs no update") {
    Stage stage({.printers = {quick("VK14", "firmware=VK14 01.70")}});
    stage.waitForDeviceInfo();
    agree(stage);
    checkAlert(stage.waitForAlert("Firmware update not needed"), "This printer has firmware version 1.70 installed.",
               {"OK"});
    stage.answer("OK");
    stage.waitFor("the result", [&] {
        return stage.visibleText().contains("Not updated: the installed firmware VK14 01.70 is newer than VK14 01.61.");
    });
}

TEST_CASE("a printer that is not ready can be made ready and tried again, and Escape cancels") {
    Stage stage({.printers = {quick("VK14", "status=00000:01000:01000:00000")}});
    stage.waitForDeviceInfo();
    agree(stage);
    checkAlert(stage.waitForAlert("Printer Not Ready"), "Please correct the following issue: Cover Open",
               {"Proceed", "Cancel"});
    stage.screenshot("not-ready");
    stage.answer("Proceed");
    stage.waitFor("the next alert", [&] { return stage.alert().has_value(); });
    if (stage.alert()->title == "Printer Not Ready") stage.answer("Proceed");
    stage.waitForAlert(kConfirmTitle);
    stage.press(Qt::Key_Escape);
    stage.waitFor("the alert to close", [&] { return !stage.alert(); });
}

TEST_CASE("a printer that another program holds can be tried again") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    stage.bus().setHeldByOther(0, true);
    agree(stage);
    checkAlert(stage.waitForAlert("Printer Busy"),
               "Another application is using the printer. Please proceed when the printer becomes available.",
               {"Proceed", "Cancel"});
    stage.bus().setHeldByOther(0, false);
    stage.answer("Proceed");
    checkAlert(stage.waitForAlert(kConfirmTitle),
               "The printer may be permanently damaged if it is unplugged or loses power during the update process.",
               {"Cancel", "Update Firmware to VK14 01.61"});
    stage.press(Qt::Key_Return); // "Cancel" is the default
    stage.waitFor("the result", [&] { return stage.visibleText().contains("Not updated: it was declined."); });
}

TEST_CASE("a printer that was detached while its agreement was shown is an error, and can be tried again") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    stage.waitForAlert("Attention:");
    stage.bus().unplug(0);
    stage.waitFor("no rows", [&] { return stage.rows() == 0; });
    stage.click("I Agree");
    stage.answer("Continue");
    checkAlert(stage.waitForAlert("Printer Error"),
               "The printer is not responding properly. Please power-cycle the printer and try again.",
               {"Proceed", "Cancel"});
    CHECK(stage.visibleText().contains("Not updated: the printer was disconnected before its update began."));
    stage.answer("Proceed");
    stage.waitForAlert("Printer Error");
    stage.answer("Cancel");
    CHECK(stage.visibleText().contains("Not updated: the printer was disconnected before its update began."));
}

TEST_CASE("a known printer found in its loader raises a question, and \"Ignore\" the advice to power-cycle it") {
    Stage stage({.printers = {quick("VK14", "mode=loader")}});
    stage.waitFor("its status", [&] {
        return !stage.printers().empty() && stage.printers()[0]->printerStatus() == "Firmware Update Mode";
    });
    stage.settle();
    stage.bus().unplug(0);
    stage.waitFor("no rows", [&] { return stage.rows() == 0; });
    stage.bus().plug(0);
    checkAlert(stage.waitForAlert("Attention:"),
               "A printer was unexpectedly found in firmware update mode. Would you like to update the firmware? ",
               {"Ignore", "Update Firmware"});
    stage.screenshot("loader-found");
    stage.answer("Ignore");
    checkAlert(stage.waitForAlert("Please power-cycle this printer"),
               "Contact customer support if power-cycling does not resolve the issue.", {"OK"});
    stage.answer("OK");
}

TEST_CASE("changing the USB serial number asks for a power cycle in an application-modal alert") {
    Stage stage({.printers = {quick("VK26", "usb-serial=off")}, .admittedProducts = {0x8B01}});
    stage.waitForDeviceInfo();
    stage.click("USB Serial Number");
    const auto shown = stage.waitForAlert("Please power-cycle the selected printer now to complete the process!");
    CHECK(shown.isModal);
    CHECK(shown.box->windowTitle() == "VK26 000001 (1-1)"); // the printer has no USB serial number
    CHECK(shown.checkBox == "");                            // the alert has no setting that suppresses it
    CHECK(shown.message == "");
    CHECK(shown.buttons == QStringList{"OK"});
    CHECK(shown.defaultButton == "OK");
    CHECK(shown.hasPicture);
    stage.screenshot("power-cycle");
    stage.answer("OK");
    stage.waitFor("the setting", [&] { return stage.cell(0, ui::PrinterTableModel::usbSerialNumber) == "Enabled"; });
}

TEST_CASE("a USB serial number that cannot be changed because the printer is busy is reported in a modal alert") {
    Stage stage({.printers = {quick("VK26")}, .admittedProducts = {0x8B01}});
    stage.waitForDeviceInfo();
    stage.bus().setHeldByOther(0, true);
    stage.click("USB Serial Number");
    const auto shown = stage.waitForAlert("The Selected Printer is Unavailable. (Busy)");
    CHECK(shown.isModal);
    CHECK(shown.buttons == QStringList{"OK"});
    stage.answer("OK");
    stage.bus().setHeldByOther(0, false);
}

TEST_CASE("alerts of several printers are shown one after another, each under its printer's name") {
    Stage stage({.printers = {quick("VK14"), quick("VK14")}});
    stage.waitForDeviceInfo();
    for (const auto& printer : stage.printers()) {
        printer->showAlertWithTitle("Alert of " + printer->printerSerialNumber().value_or(""), "Message", {}, {});
    }
    const auto first = stage.waitForAlert("Alert of 000001");
    CHECK(first.buttons == QStringList{"OK"});
    CHECK(first.box->windowTitle() == "VK14 000001 (1-1)");
    CHECK(stage.visibleText().contains("VK14 000001 (1-1)"));
    CHECK(stage.shownAlerts() == 1);
    stage.answer("OK");
    CHECK(stage.waitForAlert("Alert of 000002").box->windowTitle() == "VK14 000002 (1-2)");
    CHECK(stage.shownAlerts() == 1);
    stage.answer("OK");
    CHECK_FALSE(stage.alert());
}

namespace {

// answered: incremented by each answer.
AlertDescription alertOf(const std::string& title, bool isModal, int* answered = nullptr) {
    AlertDescription alert;
    alert.messageText = title;
    alert.buttons = {"OK"};
    alert.isModal = isModal;
    alert.completion = [answered](int /*answer*/) {
        if (answered != nullptr) ++*answered;
    };
    return alert;
}

} // namespace

TEST_CASE("a sheet waits until an application-modal alert is answered") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    auto& alerts = stage.program().alerts();
    int answered = 0;
    alerts.beginAlert(alertOf("Modal", true));
    stage.waitForAlert("Modal");
    alerts.beginAlert(alertOf("Sheet", false, &answered));
    stage.settle();
    CHECK(stage.shownAlerts() == 1);
    CHECK(stage.alert()->title == "Modal");
    stage.answer("OK");
    stage.waitForAlert("Sheet");
    CHECK(answered == 0);
    stage.answer("OK");
    CHECK(answered == 1);
}

TEST_CASE("of two application-modal alerts the one that is answered is the one that ends") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    auto& alerts = stage.program().alerts();
    int firstAnswers = 0;
    int secondAnswers = 0;
    alerts.beginAlert(alertOf("First", true, &firstAnswers));
    stage.waitForAlert("First");
    QMessageBox* const first = stage.alert()->box;
    alerts.beginAlert(alertOf("Second", true, &secondAnswers));
    stage.waitFor("both", [&] { return stage.shownAlerts() == 2; });
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        auto* const box = qobject_cast<QMessageBox*>(widget);
        if (box != nullptr && box != first && box->isVisible()) box->buttons().first()->click();
    }
    stage.waitFor("the second to close", [&] { return stage.shownAlerts() == 1; });
    CHECK(firstAnswers == 0);
    CHECK(secondAnswers == 1);
    stage.waitForAlert("First");
    stage.answer("OK");
    CHECK(firstAnswers == 1);
}

TEST_CASE("a sheet has the keyboard again when an application-modal alert before it is answered") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    auto& alerts = stage.program().alerts();
    alerts.beginAlert(alertOf("Sheet", false));
    QMessageBox* const sheet = stage.waitForAlert("Sheet").box;
    alerts.beginAlert(alertOf("Modal", true));
    stage.waitForAlert("Modal");
    stage.answer("OK");
    stage.window().activateWindow(); // as some desktops do
    stage.waitFor("the sheet in front", [&] { return QApplication::activeWindow() == sheet; });
    stage.press(Qt::Key_Return);
    stage.waitFor("its end", [&] { return !stage.alert(); });
}

TEST_CASE("the log can be read and searched while a question is shown") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    stage.triggerMenu("Window", "Log");
    stage.waitFor("the log window", [&] { return stage.find("Lines of the log") != nullptr; });
    stage.supervisor().begin(stage.printers().front(), UpdateSupervisor::Equal::install);
    stage.waitForAlert("Attention:");
    auto& search = stage.findA<QLineEdit>("Search the log");
    QWindow* const log = search.window()->windowHandle();
    search.window()->raise();
    search.window()->activateWindow();
    stage.waitFor("the log in front", [&] { return QApplication::activeWindow() == search.window(); });
    QTest::mouseClick(log, Qt::LeftButton, {}, search.mapTo(search.window(), search.rect().center()));
    CHECK(search.hasFocus());
    QTest::keyClick(log, Qt::Key_X);
    CHECK(search.text() == "x");
    stage.answer("Quit");
}

TEST_CASE("an alert shows its printer's picture, with a warning sign where it is critical, in light and in dark") {
    Stage stage({.printers = {quick("VK-RZ7")}, .admittedProducts = {5}});
    stage.waitForDeviceInfo();
    stage.click("Update Firmware…");
    const auto shown = stage.waitForAlert("Attention:"); // critical
    const auto picture = [&] { return ui::pictureNamed("ZUL_RZ_Series", QApplication::palette()); };
    CHECK(shown.box->iconPixmap().toImage() ==
          ui::warningPicture(picture(), 64, stage.window().devicePixelRatioF()).toImage());
    useColors(true);
    stage.waitFor("the dark box",
                  [&] { return shown.box->checkBox()->palette().color(QPalette::Window).lightness() > 200; });
    stage.waitFor("the dark picture", [&] {
        return shown.box->iconPixmap().toImage() ==
               ui::warningPicture(picture(), 64, stage.window().devicePixelRatioF()).toImage();
    });
    stage.click("I Agree");
    stage.answer("Continue");
    const auto confirmation = stage.waitForAlert(kConfirmTitle);
    CHECK(confirmation.box->iconPixmap().toImage() ==
          picture().pixmap(QSize(64, 64), stage.window().devicePixelRatioF()).toImage());
}

TEST_CASE("a text from a printer is shown literally even if it looks like markup, and an alert is never larger than "
          "the screen") {
    Stage stage({.printers = {quick("VK14")}});
    stage.waitForDeviceInfo();
    QString path;
    while (path.size() < 250) path += "/a folder with a long name";
    stage.printers()[0]->showAlertWithTitle(path.toStdString() + " exists already.", "<b>VK14</b> 01.60", {}, {});
    const auto shown = stage.waitForAlert(path + " exists already.");
    CHECK(shown.message == "<b>VK14</b> 01.60");
    for (const QLabel* label : shown.box->findChildren<QLabel*>()) {
        if (!label->text().isEmpty()) CHECK(label->textFormat() == Qt::PlainText);
    }
    stage.screenshot("long-title");
    stage.answer("OK");
}

TEST_CASE("a printer's text does not change the writing direction of the text around it") {
    Stage stage({.printers = {quick("VK14", "serial=1\u202E2\u2066\u200F\u0085\x1B")}});
    stage.waitForDeviceInfo();
    CHECK(stage.cell(0, ui::PrinterTableModel::serialNumber) == "1?2????");
    stage.printers()[0]->showAlertWithTitle("VK14 \u202E00.10", "\u061C\nline", {}, {});
    const auto shown = stage.waitForAlert("VK14 ?00.10");
    CHECK(shown.message == "?\nline");
    CHECK(shown.box->accessibleName() == shown.title);
    CHECK_FALSE(stage.visibleText().contains(QRegularExpression("[\u061C\u200F\u202E\u2066\u0085\x1B]")));
    stage.answer("OK");
}

TEST_CASE("a counter is reset only after a question, and \"Cancel\" sends no command") {
    Stage stage({.printers = {quick("VK14", "serial=111111")}});
    stage.waitForDeviceInfo();
    stage.triggerMenu("Printer", "Reset Counter A…");
    checkAlert(stage.waitForAlert("Reset counter A of VK14 111111 (1-1)?"),
               "The counter is set to 0. The old value cannot be restored.", {"Cancel", "Reset Counter"});
    stage.answer("Cancel");
    stage.triggerMenu("Printer", "Reset Counter M…");
    stage.waitForAlert("Reset counter M of VK14 111111 (1-1)?");
    stage.answer("Reset Counter");
    stage.settle();
    const std::string journal = TemporaryFolder::read(stage.journalFile());
    CHECK(journal.find("MNT_WTCOUNTER_CLR") != std::string::npos);
    CHECK(journal.find("MNT_WTCOUNTER_CLR", journal.find("MNT_WTCOUNTER_CLR") + 1) == std::string::npos);
}

} // namespace zul::test
