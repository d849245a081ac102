// The window in other languages: all texts are translated, plural forms are right, and the longest texts fit. GUI
// thread.
#include "window/Stage.h"

#include "platform/foundation/LocalizedFormat.h"
#include "ui/PrinterTableModel.h"
#include "virtual_printer/VirtualBus.h"

#include <QAccessible>
#include <QAction>
#include <QFileDialog>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QTableView>
#include <QToolBar>
#include <QToolButton>
#include <doctest/doctest.h>

namespace zul::test {

namespace {

struct Wanted {
    const char* language;
    const char* agreement; // title
    const char* agree;
    const char* quit;
    const char* update; // the tool button
    const char* status; // header of the column
};

// Titles and short texts are shown whole; the long text of the color tables wraps, and the details show it whole.
void checkColumns(Stage& stage) {
    using Model = ui::PrinterTableModel;
    const auto& table = *stage.window().findChild<QTableView*>("table");
    const QHeaderView& header = *table.horizontalHeader();
    for (int column = 0; column < Model::columns; ++column) {
        if (header.isSectionHidden(column)) continue;
        const std::string title = table.model()->headerData(column, Qt::Horizontal).toString().toStdString();
        CHECK_MESSAGE(header.sectionSize(column) >= header.sectionSizeHint(column), title);
        if (column == Model::colorTables || column == Model::state) continue; // the state has two lines
        for (int row = 0; row < stage.rows(); ++row) {
            const QString text = stage.cell(row, column);
            const int needed = table.fontMetrics().horizontalAdvance(text);
            CHECK_MESSAGE(header.sectionSize(column) > needed, title << ": " << text.toStdString());
        }
    }
}

} // namespace

TEST_CASE("menus, headers, alerts and updates are in the operator's language") {
    const Wanted wanted[] = {{"de", "Achtung:", "Ich stimme zu", "Beenden", "Firmware aktualisieren…", "Status"},
                             {"ja", "注意：", "同意する", "終了", "ファームウェアを更新…", "ステータス"}};
    for (const Wanted& one : wanted) {
        CAPTURE(one.language);
        Stage stage({.printers = {quick("VK14")}, .language = one.language, .speed = 10});
        stage.waitForDeviceInfo();
        const auto& table = *stage.window().findChild<QTableView*>("table");
        CHECK(table.model()->headerData(ui::PrinterTableModel::status, Qt::Horizontal).toString() == one.status);
        CHECK(stage.window().windowTitle() == "ZUL Printer Utility");
        CHECK(stage.cell(0, ui::PrinterTableModel::status) == "Idle"); // as in the printers' manuals
        stage.click(one.update);
        const auto shown = stage.waitForAlert(one.agreement);
        CHECK(shown.checkBox == one.agree);
        CHECK(shown.buttons.first() == one.quit);
        CHECK(shown.message.contains("VK14 01.61"));
        stage.screenshot(QString("agreement-") + one.language);
        stage.click(one.agree);
        stage.answer(shown.buttons.last());
        stage.waitFor("the confirmation", [&] { return stage.alert() && stage.alert()->title != one.agreement; });
        stage.answer(stage.alert()->buttons.last());
        stage.waitFor("the report", [&] { return stage.alert().has_value(); });
        stage.answer(stage.alert()->buttons.last());
        stage.settle();
        stage.screenshot(QString("updated-") + one.language);
        CHECK(stage.cell(0, ui::PrinterTableModel::installedFirmware) == "VK14 01.61");
    }
}

TEST_CASE("menus, tool bar and file dialog are translated, and no two items of a menu have the same access key") {
    QStringList texts; // in English
    for (const char* language : {"en", "de", "ja"}) {
        CAPTURE(language);
        Stage stage({.printers = {quick("VK14")}, .language = language});
        const bool isEnglish = std::string(language) == "en";
        int position = 0;
        for (const QAction* action : stage.window().findChildren<QAction*>()) {
            if (isEnglish) texts << action->text();
            const QString before = texts.value(position++);
            if (isEnglish || before.isEmpty()) continue;
            CHECK_MESSAGE(action->text() != before, before.toStdString());
            CHECK_MESSAGE(!action->iconText().contains("(&"), action->iconText().toStdString());
            CHECK_MESSAGE(!action->iconText().endsWith(')'), action->iconText().toStdString());
        }
        for (const QMenu* menu : stage.window().menuBar()->findChildren<QMenu*>()) {
            QStringList keys;
            for (const QAction* action : menu->actions()) {
                const auto at = action->text().indexOf('&');
                if (at >= 0) keys << action->text().mid(at + 1, 1).toUpper();
            }
            const auto count = keys.size();
            CHECK_MESSAGE(keys.removeDuplicates() == 0, menu->title().toStdString());
            CHECK(count > 0);
        }
        auto* const bar = stage.window().findChild<QToolBar*>("toolbar");
        const QString name = QAccessible::queryAccessibleInterface(bar)->text(QAccessible::Name);
        CHECK((name == "Tools") == isEnglish);
        stage.click(stage.window().findChild<QAction*>("actionReport")->iconText());
        stage.waitFor("the dialog", [&] { return stage.window().findChild<QFileDialog*>("saveReport") != nullptr; });
        auto* const dialog = stage.window().findChild<QFileDialog*>("saveReport");
        QStringList buttons;
        for (const QAbstractButton* button : dialog->findChildren<QAbstractButton*>()) buttons << button->text();
        CHECK((buttons.join(' ').contains("Cancel")) == isEnglish);
        dialog->reject();
    }
}

TEST_CASE("numbers have the plural form of their language") {
    const auto attached = [](unsigned long number) {
        return localizedPluralFormat("%d printer attached", "%d printers attached", number);
    };
    useLanguage("en");
    CHECK(attached(0) == "0 printers attached");
    CHECK(attached(1) == "1 printer attached");
    CHECK(attached(2) == "2 printers attached");
    useLanguage("de");
    CHECK(attached(1) == "1 Drucker angeschlossen");
    CHECK(attached(2) == "2 Drucker angeschlossen");
    CHECK(localizedPluralFormat("%d color table written.", "%d color tables written.", 1) ==
          "1 Farbtabelle geschrieben.");
    CHECK(localizedPluralFormat("%d color table written.", "%d color tables written.", 2) ==
          "2 Farbtabellen geschrieben.");
    useLanguage("ja");
    CHECK(attached(1) == "接続中のプリンター：1 台");
    CHECK(attached(3) == "接続中のプリンター：3 台");
    useLanguage("en");
}

TEST_CASE("no text of the window is cut off in any language") {
    for (const char* language : {"en", "de", "ja"}) {
        CAPTURE(language);
        Stage stage({.printers = {quick("VK14")}, .language = language});
        stage.waitForDeviceInfo();
        const auto* bar = stage.window().findChild<QToolBar*>("toolbar");
        for (const QToolButton* button : bar->findChildren<QToolButton*>()) {
            if (button->objectName() == "qt_toolbar_ext_button") {
                CHECK_FALSE(button->isVisible()); // it would hide what does not fit
            } else if (button->isVisible()) {
                CHECK_MESSAGE(button->width() >= button->sizeHint().width(), button->text().toStdString());
            }
        }
        stage.supervisor().begin(stage.printers().front(), UpdateSupervisor::Equal::install);
        stage.waitFor("the agreement", [&] { return stage.alert().has_value(); });
        const auto shown = stage.waitForAlert(stage.alert()->title); // laid out and drawn
        for (const QAbstractButton* button : shown.box->buttons()) {
            CHECK_MESSAGE(button->width() >= button->minimumSizeHint().width(), button->text().toStdString());
        }
        for (const QLabel* label : stage.window().findChildren<QLabel*>()) {
            if (!label->isVisible() || label->text().isEmpty() || label->wordWrap()) continue;
            CHECK_MESSAGE(label->width() >= label->minimumSizeHint().width(), label->text().toStdString());
        }
        stage.screenshot(QString("layout-") + language);
        stage.click(shown.checkBox);
        stage.answer(shown.buttons.last());
        stage.waitFor("the confirmation", [&] { return stage.alert() && stage.alert()->title != shown.title; });
        stage.waitForAlert(stage.alert()->title);
        stage.screenshot(QString("confirmation-") + language);
    }
}

TEST_CASE("the longest language has room in larger letters") {
    const QFont usual = QApplication::font();
    QFont larger = usual;
    larger.setPointSize(11);
    QApplication::setFont(larger);
    {
        Stage stage({.printers = {quick("VK26", "usb-serial=off")}, .admittedProducts = {0x8B01}, .language = "de"});
        stage.waitForDeviceInfo();
        checkColumns(stage);
        CHECK_FALSE(stage.window().findChild<QWidget*>("qt_toolbar_ext_button")->isVisible());
        stage.screenshot("larger-letters");
        stage.printers().front()->setUsbISerial(true);
        stage.waitFor("the power-cycle alert", [&] { return stage.alert().has_value(); });
        stage.waitForAlert(stage.alert()->title);
        stage.screenshot("larger-letters-alert");
    }
    QApplication::setFont(usual);
}

TEST_CASE("titles and texts of the table have room in any language") {
    for (const char* language : {"en", "de", "ja"}) {
        CAPTURE(language);
        Stage stage({.printers = {quick("VK14"), quick("VK18"), quick("VK-RZ7"), quick("VK26"), quick("VK28")},
                     .admittedProducts = {4, 5, 8, 0x8B01, 0x9001},
                     .language = language});
        stage.waitForDeviceInfo();
        checkColumns(stage);
        stage.screenshot(QString("columns-") + language);
    }
}

TEST_CASE("the longest alerts have room in any language") {
    for (const char* language : {"en", "de", "ja"}) {
        CAPTURE(language);
        Stage stage({.printers = {quick("VK-RZ7", "firmware=VK-RZ7 02.03"), quick("VK14", "mode=loader")},
                     .admittedProducts = {5},
                     .language = language});
        const auto lookAt = [&](const std::string& what) {
            stage.waitFor(what, [&] { return stage.alert().has_value(); });
            const auto shown = stage.waitForAlert(stage.alert()->title);
            stage.screenshot(QString::fromStdString(what + "-") + language);
            return shown;
        };
        stage.waitFor("its status",
                      [&] { return stage.printers().size() == 2 && stage.printers()[0]->firmwareVersion(); });
        stage.settle();
        stage.bus().unplug(1);
        stage.waitFor("one row", [&] { return stage.rows() == 1; });
        stage.bus().plug(1);
        stage.answer(lookAt("question-of-a-loader").buttons.first());
        stage.answer(lookAt("advice-to-power-cycle").buttons.last());
        stage.supervisor().begin(stage.printers().front(), UpdateSupervisor::Equal::install);
        lookAt("agreement-for-new-media");
    }
}

} // namespace zul::test
