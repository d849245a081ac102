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
#include "ui/Texts.h"

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
    operatorText("Picture"),          operatorText("Model"),
    operatorText("Serial Number"),    operatorText("Status"),
    operatorText("Firmware"),         operatorText("Available Firmware"),
    operatorText("Color Tables"),     operatorText("Lifetime Counter"),
    operatorText("USB Serial Number")};

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
    for (int row = static_cast<int>(_rows.size()) - 1; row >= 0; --row) {
        if (std::ranges::find(printers, printer(row)) != printers.end()) continue;
        beginRemoveRows({}, row, row);
        _rows.erase(_rows.begin() + row);
        endRemoveRows();
    }
    for (const Printer& one : printers) {
        if (rowOf(one.get()) >= 0) continue;
        const int row = static_cast<int>(_rows.size()); // the list grows at its end
        beginInsertRows({}, row, row);
        _rows.push_back(makeRow(one));
        endInsertRows();
    }
}

std::unique_ptr<PrinterTableModel::Row> PrinterTableModel::makeRow(const Printer& printer) {
    auto row = std::make_unique<Row>();
    row->printer = printer;
    row->relay =
        std::make_unique<ChangeRelay>(_mainQueue, printer, KeyValueObservable::kEveryKey,
                                      [this, made = row.get()](const std::string&) { scheduleRefresh(*made); });
    readTexts(*row);
    return row;
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
        Q_EMIT model->dataChanged(model->index(number, 0), model->index(number, columns - 1));
        Q_EMIT model->printerChanged(number);
    });
}

void PrinterTableModel::refreshAll() {
    for (const auto& row : _rows) scheduleRefresh(*row);
}

void PrinterTableModel::readTexts(Row& row) const {
    TBUSBPrinterZUL& printer = *row.printer;
    row.picture = pictureNamed(qtext(printer.image()), _palette);
    row.texts[model] = qtext(printer.manufacturer().value_or("") + " " + printer.model().value_or("")).trimmed();
    row.texts[serialNumber] = qtext(printer.printerSerialNumber());
    row.texts[status] = _statusText ? _statusText(printer) : qtext(printer.printerStatus());
    row.texts[installedFirmware] = qtext(printer.firmwareVersion());
    static_cast<void>(printer.newFirmwareVersion()); // it checks the files and keeps the results in the device info
    const auto available = printer.availableFirmware();
    row.texts[availableFirmware] = available ? qtext(availableText(*available)) : QString("-"); // the model has no firmware files
    row.texts[colorTables] = colorTableText(printer);
    row.texts[lifetimeCounter] = qtext(printer.lifetimeCounter());
    row.texts[usbSerialNumber] = localized(printer.usbISerialString().c_str());
    row.isNewer = available && available->isReady() && printer.firmwareVersion() &&
                  printer.availableFirmwareVersion() > printer.installedFirmwareVersion();
}

PrinterTableModel::Printer PrinterTableModel::printer(int row) const {
    return row >= 0 && row < static_cast<int>(_rows.size()) ? _rows[static_cast<std::size_t>(row)]->printer : nullptr;
}

int PrinterTableModel::rowOf(const TBUSBPrinterZUL* printer) const {
    const auto found =
        std::ranges::find_if(_rows, [printer](const auto& row) { return row->printer.get() == printer; });
    return found == _rows.end() ? -1 : static_cast<int>(found - _rows.begin());
}

void PrinterTableModel::setPalette(const QPalette& palette) {
    _palette = palette;
    for (const auto& row : _rows) row->picture = pictureNamed(qtext(row->printer->image()), _palette);
    if (!_rows.empty()) Q_EMIT dataChanged(index(0, picture), index(rowCount() - 1, picture));
}

// ---- queries of the view
// -------------------------------------------------------------------------------------------------

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

QVariant PrinterTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
    return title(section);
}

} // namespace zul::ui
