// Reads the texts of the table from the printers and answers the view. GUI thread, which is the main queue's: called by
// the array controller when the list changes, by change notices of the printers, and by the view.
#include "ui/PrinterTableModel.h"

#include "Classes/ColorTables.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/ArchiveTexts.h"
#include "platform/dispatch/Queue.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/KeyValueObserving.h"
#include "ui/ChangeRelay.h"
#include "ui/Pictures.h"
#include "ui/StateDelegate.h"
#include "ui/Texts.h"
#include "update/PrinterNeed.h"

#include <QFont>
#include <QPointer>
#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace zul::ui {

namespace {

// Keys of the catalogues; the engine's controller replaces them by their translations at the start.
constexpr std::array<const char*, PrinterTableModel::columns> kTitles = {
    operatorText("Picture"),
    operatorText("State"),
    operatorText("Model"),
    operatorText("Serial Number"),
    operatorText("Status"),
    operatorText("Firmware"),
    operatorText("Available Firmware"),
    operatorText("Color Tables"),
    operatorText("Lifetime Counter"),
    operatorText("USB Serial Number"),
};

} // namespace

QString colorTableText(const TBUSBPrinterZUL& printer) {
    QStringList parts;
    for (const ColorTable& table : allColorTables()) {
        const auto version = printer.infoText(table.versionKey);
        if (version) parts << QString("%1:\u00A0%2").arg(table.name, qtext(*version)); // lines break between tables
    }
    // With one table its name is left out.
    return parts.size() == 1 ? parts.first().section(u':', 1).mid(1) : parts.join(", ");
}

PrinterTableModel::PrinterTableModel(MainQueue& mainQueue, QObject* parent)
    : QAbstractTableModel(parent), _mainQueue(mainQueue) {
    std::ranges::transform(kTitles, _titles.begin(), [](const char* title) { return QString(title); });
}

// ---- rows -----------------------------------------------------------------------------------------------------------

void PrinterTableModel::setPrinters(const std::vector<Printer>& printers) {
    // From the end, so that the numbers of the remaining rows stay valid.
    for (int number = rowCount() - 1; number >= 0; --number) {
        Row& row = *_rows[static_cast<std::size_t>(number)];
        if (row.printer == nullptr || std::ranges::find(printers, row.printer) != printers.end()) continue;
        if (!_needOfAwaited || !_needOfAwaited(row.key)) {
            removeRow(number);
            continue;
        }
        row.relay.reset();
        row.printer.reset();
        readState(row);
        changed(number);
    }
    for (const Printer& one : printers) {
        if (rowOf(one.get()) >= 0 || putIntoItsRow(one)) continue;
        const int number = rowCount(); // the list grows at its end
        beginInsertRows({}, number, number);
        _rows.push_back(makeRow(one));
        endInsertRows();
    }
}

// A printer that returns is another object. It takes the row of the one that has left from its place.
bool PrinterTableModel::putIntoItsRow(const Printer& printer) {
    const auto isIts = [&](const auto& row) { return row->printer == nullptr && row->key == printer->keyUSBdevice(); };
    const auto found = std::ranges::find_if(_rows, isIts);
    if (found == _rows.end()) return false;
    attach(**found, printer);
    changed(static_cast<int>(found - _rows.begin()));
    return true;
}

void PrinterTableModel::forgetAway() {
    for (int number = rowCount() - 1; number >= 0; --number) {
        const Row& row = *_rows[static_cast<std::size_t>(number)];
        if (row.printer == nullptr && !_needOfAwaited(row.key)) removeRow(number);
    }
}

void PrinterTableModel::removeRow(int row) {
    beginRemoveRows({}, row, row);
    _rows.erase(_rows.begin() + row);
    endRemoveRows();
}

std::unique_ptr<PrinterTableModel::Row> PrinterTableModel::makeRow(const Printer& printer) {
    auto row = std::make_unique<Row>();
    attach(*row, printer);
    return row;
}

void PrinterTableModel::attach(Row& row, const Printer& printer) {
    row.printer = printer;
    row.key = printer->keyUSBdevice();
    row.isStale = false;
    row.relay = std::make_unique<ChangeRelay>(_mainQueue, printer, KeyValueObservable::kEveryKey,
                                              [this, made = &row](const std::string&) { scheduleRefresh(*made); });
    readTexts(row);
}

void PrinterTableModel::changed(int row) {
    Q_EMIT dataChanged(index(row, 0), index(row, columns - 1));
}

// One reply may change several values: they make one refresh. Always later, because reading the available version may
// itself send a change notice.
void PrinterTableModel::scheduleRefresh(Row& row) {
    if (std::exchange(row.isStale, true)) return;
    _mainQueue.async([model = QPointer(this), printer = row.printer] {
        if (!model) return;
        const int number = model->rowOf(printer.get());
        if (number < 0) return;
        Row& stale = *model->_rows[static_cast<std::size_t>(number)];
        model->readTexts(stale);
        stale.isStale = false;
        model->changed(number);
        Q_EMIT model->printerChanged(number);
    });
}

void PrinterTableModel::refreshAll() {
    for (const auto& row : _rows) {
        if (row->printer != nullptr) scheduleRefresh(*row);
    }
}

void PrinterTableModel::refreshState(const std::string& key) {
    for (std::size_t number = 0; number < _rows.size(); ++number) {
        Row& row = *_rows[number];
        if (row.key != key) continue;
        readState(row);
        const QModelIndex cell = index(static_cast<int>(number), state);
        Q_EMIT dataChanged(cell, cell);
    }
}

std::vector<PrinterNeed> PrinterTableModel::needs() const {
    std::vector<PrinterNeed> needs;
    for (const auto& row : _rows) needs.push_back(row->need.need);
    return needs;
}

void PrinterTableModel::readState(Row& row) const {
    if (!_need) return;
    row.need = row.printer != nullptr ? _need(*row.printer) : _needOfAwaited(row.key).value_or(row.need);
    row.texts[state] = qtext(row.need.detail.empty() ? row.need.word : row.need.word + ": " + row.need.detail);
}

void PrinterTableModel::readTexts(Row& row) const {
    TBUSBPrinterZUL& printer = *row.printer;
    row.pictureName = qtext(printer.image());
    row.picture = pictureNamed(row.pictureName, _palette);
    row.texts[model] = qtext(printer.manufacturer().value_or("") + " " + printer.model().value_or("")).trimmed();
    row.texts[serialNumber] = qtext(printer.printerSerialNumber());
    row.texts[status] = _statusText ? _statusText(printer) : qtext(printer.printerStatus());
    row.texts[installedFirmware] = qtext(printer.firmwareVersion());
    static_cast<void>(printer.newFirmwareVersion()); // it checks the files and keeps the results in the device info
    const auto available = printer.availableFirmware();
    row.texts[availableFirmware] =
        available ? qtext(availableText(*available)) : QString("-"); // the model has no firmware files
    row.texts[colorTables] = colorTableText(printer);
    row.texts[lifetimeCounter] = qtext(printer.lifetimeCounter());
    row.texts[usbSerialNumber] = localized(printer.usbISerialString().c_str());
    readState(row);
    row.isNewer = available && available->isReady() && printer.firmwareVersion() &&
                  printer.availableFirmwareVersion() > printer.installedFirmwareVersion();
}

PrinterTableModel::Printer PrinterTableModel::printer(int row) const {
    return row >= 0 && row < rowCount() ? _rows[static_cast<std::size_t>(row)]->printer : nullptr;
}

int PrinterTableModel::rowOf(const TBUSBPrinterZUL* printer) const {
    const auto isIts = [printer](const auto& row) { return printer != nullptr && row->printer.get() == printer; };
    const auto found = std::ranges::find_if(_rows, isIts);
    return found == _rows.end() ? -1 : static_cast<int>(found - _rows.begin());
}

int PrinterTableModel::attachedCount() const {
    return static_cast<int>(std::ranges::count_if(_rows, [](const auto& row) { return row->printer != nullptr; }));
}

int PrinterTableModel::firstAttachedRow() const {
    const auto found = std::ranges::find_if(_rows, [](const auto& row) { return row->printer != nullptr; });
    return found == _rows.end() ? -1 : static_cast<int>(found - _rows.begin());
}

void PrinterTableModel::setPalette(const QPalette& palette) {
    _palette = palette;
    for (const auto& row : _rows) row->picture = pictureNamed(row->pictureName, _palette);
    if (!_rows.empty()) Q_EMIT dataChanged(index(0, picture), index(rowCount() - 1, picture));
}

// ---- queries of the view --------------------------------------------------------------------------------------------

void PrinterTableModel::setTitle(int column, const QString& title) {
    _titles[static_cast<std::size_t>(column)] = title;
    Q_EMIT headerDataChanged(Qt::Horizontal, column, column);
}

int PrinterTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(_rows.size());
}

int PrinterTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : columns;
}

QVariant PrinterTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount()) return {};
    const Row& row = *_rows[static_cast<std::size_t>(index.row())];
    const auto column = static_cast<std::size_t>(index.column());
    switch (role) {
    case Qt::DisplayRole:
        return row.texts[column];
    case StateDelegate::kStateRole:
        return QVariant::fromValue(row.need);
    case Qt::DecorationRole:
        return index.column() == picture ? QVariant(row.picture) : QVariant();
    case Qt::FontRole:
        if (index.column() == availableFirmware && row.isNewer) {
            QFont bold;
            bold.setBold(true);
            return bold;
        }
        return {};
    case Qt::ToolTipRole:
        if (index.column() == availableFirmware && row.isNewer) return localized("Newer than the installed firmware");
        return index.column() == picture ? row.texts[model] : row.texts[column];
    case Qt::AccessibleDescriptionRole:
        return index.column() == availableFirmware && row.isNewer ? localized("Newer than the installed firmware")
                                                                  : QString();
    case Qt::AccessibleTextRole:
        return index.column() == picture ? row.texts[model] : row.texts[column];
    default:
        return {};
    }
}

Qt::ItemFlags PrinterTableModel::flags(const QModelIndex& index) const {
    return printer(index.row()) != nullptr ? QAbstractTableModel::flags(index) : Qt::NoItemFlags;
}

QVariant PrinterTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
    return title(section);
}

} // namespace zul::ui
