// The details pane: its model without a printer, and the view as an operator or a screen reader uses it. GUI thread.
#include "window/Stage.h"

#include "ui/DetailsModel.h"
#include "ui/DetailsPane.h"
#include "ui/Texts.h"

#include <QAbstractItemDelegate>
#include <QAbstractItemModelTester>
#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QHeaderView>
#include <QPersistentModelIndex>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStyleOptionViewItem>
#include <QTest>
#include <doctest/doctest.h>
#include <optional>

namespace zul::test {

namespace {

using ui::Detail;
using ui::DetailsModel;
using Lines = std::vector<Detail>;

const Lines kLines = {{"Model", "VK14"}, {"Status", "Idle"}, {"Location", "1-1"}};

Lines linesOf(const DetailsModel& model) {
    Lines lines;
    for (int row = 0; row < model.rowCount(); ++row) {
        lines.push_back({model.data(model.index(row, DetailsModel::label)).toString(),
                         model.data(model.index(row, DetailsModel::value)).toString()});
    }
    return lines;
}

QModelIndex valueOf(ui::DetailsPane& pane, const QString& label) {
    const auto& model = *pane.model();
    const auto found = model.match(model.index(0, DetailsModel::label), Qt::DisplayRole, label, 1, Qt::MatchExactly);
    REQUIRE_MESSAGE(!found.isEmpty(), label.toStdString());
    return found.first().siblingAtColumn(DetailsModel::value);
}

void clickCell(QTableView& view, const QModelIndex& cell, Qt::KeyboardModifiers modifiers = {}) {
    view.scrollTo(cell);
    QTest::mouseClick(view.viewport(), Qt::LeftButton, modifiers, view.visualRect(cell).center());
}

// What Ctrl+C leaves in the clipboard; nullopt if it leaves the clipboard alone.
std::optional<QString> copied(Stage& stage) {
    const QString before = "unchanged";
    QApplication::clipboard()->setText(before);
    stage.press(Qt::Key_C, Qt::ControlModifier);
    const QString text = QApplication::clipboard()->text();
    return text == before ? std::nullopt : std::optional(text);
}

QAccessibleTableInterface& accessibleTable(ui::DetailsPane& pane) {
    return *QAccessible::queryAccessibleInterface(&pane)->tableInterface();
}

} // namespace

TEST_CASE("the details model has one row per line, with a bold label and a value") {
    DetailsModel model;
    const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    model.replace(kLines);
    CHECK(linesOf(model) == kLines);
    const auto at = [&](int column, int role) { return model.data(model.index(1, column), role); };
    CHECK(at(DetailsModel::label, Qt::FontRole).value<QFont>().bold());
    CHECK_FALSE(at(DetailsModel::value, Qt::FontRole).isValid());
    CHECK(at(DetailsModel::value, Qt::AccessibleTextRole) == "Idle");
    CHECK(at(DetailsModel::value, Qt::AccessibleDescriptionRole) == "Status");
    CHECK_FALSE(at(DetailsModel::label, Qt::ToolTipRole).isValid());
    CHECK_FALSE(model.data(model.index(3, 0), Qt::DisplayRole).isValid());
    CHECK_FALSE(model.headerData(0, Qt::Horizontal, Qt::DisplayRole).isValid());
}

TEST_CASE("the tool tip of a value shows what looks like markup as it is") {
    DetailsModel model;
    model.replace({{"Model", "<b>VK14</b>"}});
    CHECK(model.data(model.index(0, DetailsModel::value), Qt::ToolTipRole) == "<span>&lt;b&gt;VK14&lt;/b&gt;</span>");
}

TEST_CASE("a changed value is one change of the details model, and equal lines are none") {
    DetailsModel model;
    model.replace(kLines);
    const QSignalSpy changes(&model, &QAbstractItemModel::dataChanged);
    const QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
    const QSignalSpy insertions(&model, &QAbstractItemModel::rowsInserted);
    const QSignalSpy removals(&model, &QAbstractItemModel::rowsRemoved);
    model.update(kLines);
    CHECK(changes.isEmpty());
    Lines lines = kLines;
    lines[1].value = "Paper End";
    model.update(lines);
    CHECK(linesOf(model) == lines);
    REQUIRE(changes.size() == 1);
    CHECK(changes[0][0].toModelIndex() == model.index(1, DetailsModel::value));
    CHECK(resets.isEmpty());
    CHECK(insertions.isEmpty());
    CHECK(removals.isEmpty());
}

TEST_CASE("a remaining line of the details keeps its model index while lines are added and removed around it") {
    DetailsModel model;
    const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    model.replace(kLines);
    const QPersistentModelIndex location = model.index(2, DetailsModel::value);
    const Lines more = {
        {"Model", "VK14"}, {"Serial Number", "1"}, {"Firmware", "a"}, {"Location", "1-1"}, {"Key", "k"}};
    model.update(more);
    CHECK(linesOf(model) == more);
    CHECK(location.row() == 3);
    CHECK(location.data() == "1-1");
    model.update(kLines);
    CHECK(linesOf(model) == kLines);
    CHECK(location.row() == 2);
    model.update({});
    CHECK(model.rowCount() == 0);
    CHECK_FALSE(location.isValid());
}

TEST_CASE("the details model shows lines with the same label, and lines in another order, as they are") {
    DetailsModel model;
    const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    const Lines files = {{"Firmware file", "a"}, {"Firmware file", "b"}, {"Location", "1-1"}};
    model.update(files);
    CHECK(linesOf(model) == files);
    const Lines fewer = {{"Firmware file", "b"}, {"Location", "1-1"}};
    model.update(fewer);
    CHECK(linesOf(model) == fewer);
    const Lines reversed = {{"Location", "1-1"}, {"Firmware file", "b"}, {"Firmware file", "a"}};
    model.update(reversed);
    CHECK(linesOf(model) == reversed);
}

TEST_CASE("a screen reader finds labels and values of the details in a table") {
    Stage stage({.printers = {quick("VK14", "serial=111111")}});
    stage.waitForDeviceInfo();
    auto& table = accessibleTable(stage.findA<ui::DetailsPane>("Details of the selected printer"));
    CHECK(table.columnCount() == 2);
    REQUIRE(table.rowCount() > 10);
    CHECK(table.cellAt(0, 0)->text(QAccessible::Name) == "Model");
    CHECK(table.cellAt(0, 1)->text(QAccessible::Name) == "VK14");
    CHECK(table.cellAt(0, 1)->text(QAccessible::Description) == "Model");
    CHECK(stage.detailsText().contains("Serial Number\n111111\n"));
}

TEST_CASE("all details can be copied with the keyboard, one line each") {
    Stage stage({.printers = {quick("VK14", "serial=111111")}});
    stage.waitForDeviceInfo();
    stage.tabTo("Details of the selected printer");
    stage.press(Qt::Key_A, Qt::ControlModifier);
    const QString text = copied(stage).value_or("");
    CHECK(text.startsWith("Model\tVK14\nManufacturer\tZUL\n"));
    CHECK(text.contains("\nSerial Number\t111111\n"));
    CHECK(text.contains("\n1284 device ID\tMFG:Zul Imaging Company;MDL:VK14;SERN:111111;\n"));
    CHECK(text.count('\n') == stage.findA<ui::DetailsPane>("Details of the selected printer").model()->rowCount() - 1);
}

TEST_CASE("selected values of the details are copied without labels, from top to bottom") {
    Stage stage({.printers = {quick("VK14", "serial=111111")}});
    stage.waitForDeviceInfo();
    auto& pane = stage.findA<ui::DetailsPane>("Details of the selected printer");
    clickCell(pane, valueOf(pane, "Serial Number"));
    clickCell(pane, valueOf(pane, "Model"), Qt::ControlModifier);
    CHECK(copied(stage) == "VK14\n111111");
    pane.clearSelection();
    CHECK(copied(stage) == std::nullopt);
}

TEST_CASE("a value in the details stays selected while values above it change, until another printer is shown") {
    Stage stage({.printers = {quick("VK14", "serial=111111,status=00000:01100"), quick("VK14", "serial=222222")}});
    stage.waitForDeviceInfo();
    stage.clickRow(0);
    stage.settle();
    auto& pane = stage.findA<ui::DetailsPane>("Details of the selected printer");
    clickCell(pane, valueOf(pane, "1284 device ID"));
    const int place = pane.verticalScrollBar()->value();
    stage.triggerMenu("Printer", "Refresh");
    stage.waitFor("the other status", [&] { return stage.detailsText().contains("Status\nPaper End"); });
    stage.settle();
    CHECK(pane.verticalScrollBar()->value() == place);
    stage.screenshot("selected-detail");
    CHECK(copied(stage) == "MFG:Zul Imaging Company;MDL:VK14;SERN:111111;");
    stage.printers().at(1)->getPrinterFirmwareVersion(); // it becomes the selected printer
    stage.waitFor("the second row", [&] { return stage.highlightedRow() == 1; });
    stage.waitFor("its details", [&] { return stage.detailsText().contains("Serial Number\n222222"); });
    CHECK(copied(stage) == std::nullopt);
    CHECK(pane.verticalScrollBar()->value() == 0);
}

TEST_CASE("a long value in the details wraps in a narrow pane, where its row is as high as its text") {
    Stage stage({.printers = {quick("VK14", "serial=111111")}});
    stage.waitForDeviceInfo();
    ui::DetailsPane pane;
    pane.resize(900, 300);
    pane.showPrinter(stage.printers().front());
    pane.show();
    const QModelIndex id = valueOf(pane, "1284 device ID");
    stage.waitFor("one line", [&] { return pane.rowHeight(id.row()) == pane.rowHeight(0); });
    pane.resize(360, 300);
    stage.waitFor("more than one line", [&] { return pane.rowHeight(id.row()) > pane.rowHeight(0) * 3 / 2; });
    QStyleOptionViewItem option;
    option.rect = pane.visualRect(id);
    option.features = QStyleOptionViewItem::WrapText;
    const int longestLine = pane.itemDelegate()->sizeHint(option, id).width();
    CHECK(longestLine <= pane.columnWidth(DetailsModel::value)); // it also breaks where it has no blanks
    CHECK_FALSE(pane.horizontalScrollBar()->isVisible());
    const QAbstractItemView& view = pane;
    CHECK(view.sizeHintForColumn(DetailsModel::label) <= pane.columnWidth(DetailsModel::label));
    CHECK(pane.model()->data(id, Qt::ToolTipRole).toString().contains("SERN:111111;"));
}

TEST_CASE(
    "where people write from right to left the labels of the details are at the right, and values read as they are") {
    QApplication::setLayoutDirection(Qt::RightToLeft);
    {
        Stage stage({.printers = {quick("VK14", "serial=111111")}});
        stage.waitForDeviceInfo();
        auto& pane = stage.findA<ui::DetailsPane>("Details of the selected printer");
        const QModelIndex value = valueOf(pane, "Model");
        CHECK(pane.visualRect(value.siblingAtColumn(DetailsModel::label)).left() > pane.visualRect(value).left());
        // The value is drawn next to its label, at the right of its cell.
        const QImage cell = pane.viewport()->grab(pane.visualRect(value)).toImage();
        const QRgb background = cell.pixel(0, 0);
        const auto isDrawn = [&](int x) {
            for (int y = 0; y < cell.height(); ++y) {
                if (cell.pixel(x, y) != background) return true;
            }
            return false;
        };
        int first = 0;
        while (first < cell.width() && !isDrawn(first)) ++first;
        CHECK(first > cell.width() / 2);
        CHECK(first < cell.width());
        stage.screenshot("right-to-left");
    }
    QApplication::setLayoutDirection(Qt::LeftToRight);
}

} // namespace zul::test
