#include "ui/PrinterTableModel.h"

#include "Classes/ColorTables.h"
#include "archive/ArchiveTexts.h"
#include "ui/Pictures.h"
#include "ui/Texts.h"

#include <QFont>
#include <QPointer>
#include <algorithm>

namespace zul::ui {

namespace {

// Keys of the catalogues; the controller replaces them by their localised form at the start.
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
        const auto version = printer.fact(table.versionKey);
        if (version) parts << QString("%1:\u00A0%2").arg(table.name, qtext(*version)); // lines break between tables
    }
    // A model with one table needs no names of tables.
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
    readFacts(*row);
    return row;
}

// Several facts of one answer make one refresh. Always later: reading the offered version may itself send a notice.
void PrinterTableModel::scheduleRefresh(Row& row) {
    if (std::exchange(row.isStale, true)) return;
    _mainQueue.async([model = QPointer(this), printer = row.printer] {
        if (!model) return;
        const int number = model->rowOf(printer.get());
        if (number < 0) return;
        Row& stale = *model->_rows[static_cast<std::size_t>(number)];
        model->readFacts(stale);
        stale.isStale = false;
        Q_EMIT model->dataChanged(model->index(number, 0), model->index(number, columns - 1));
        Q_EMIT model->printerChanged(number);
    });
}

void PrinterTableModel::refreshAll() {
    for (const auto& row : _rows) scheduleRefresh(*row);
}

void PrinterTableModel::readFacts(Row& row) const {
    TBUSBPrinterZUL& facts = *row.printer;
    row.picture = pictureNamed(qtext(facts.image()), _palette);
    row.texts[model] = qtext(facts.manufacturer().value_or("") + " " + facts.model().value_or("")).trimmed();
    row.texts[serialNumber] = qtext(facts.printerSerialNumber());
    row.texts[status] = _statusText ? _statusText(facts) : qtext(facts.printerStatus());
    row.texts[installedFirmware] = qtext(facts.firmwareVersion());
    static_cast<void>(facts.newFirmwareVersion()); // its check puts the results of the files among the facts
    const auto offer = facts.firmwareOffer();
    row.texts[offeredFirmware] = offer ? qtext(offerText(*offer)) : QString("-"); // there is no archive
    row.texts[colorTables] = colorTableText(facts);
    row.texts[lifetimeCounter] = qtext(facts.lifetimeCounter());
    row.texts[usbSerialNumber] = localized(facts.usbISerialString().c_str());
    row.isNewer = offer && offer->isReady() && facts.firmwareVersion() &&
                  facts.availableFirmwareVersion() > facts.installedFirmwareVersion();
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

// ---- what views ask -------------------------------------------------------------------------------------------------

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
        if (index.column() == offeredFirmware && row.isNewer) {
            QFont bold;
            bold.setBold(true);
            return bold;
        }
        return {};
    case Qt::ToolTipRole:
        if (index.column() == offeredFirmware && row.isNewer) return localized("Newer than the installed firmware");
        return index.column() == picture ? row.texts[model] : row.texts[column];
    case Qt::AccessibleDescriptionRole:
        return index.column() == offeredFirmware && row.isNewer ? localized("Newer than the installed firmware")
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
