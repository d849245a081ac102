// The rows of the printer table: one snapshot of the shown facts per printer, in the order of the list. GUI thread.
#pragma once

#include "Classes/TBUSBPrinterZUL.h"
#include "ui/ChangeRelay.h"

#include <QAbstractTableModel>
#include <QIcon>
#include <QPalette>
#include <QStringList>
#include <array>
#include <memory>
#include <vector>

namespace zul::ui {

class PrinterTableModel final : public QAbstractTableModel {
    Q_OBJECT

  public:
    using Printer = std::shared_ptr<TBUSBPrinterZUL>;
    enum Column {
        picture,
        model,
        serialNumber,
        status,
        installedFirmware,
        offeredFirmware,
        colorTables,
        lifetimeCounter,
        usbSerialNumber,
        columns
    };

    explicit PrinterTableModel(MainQueue& mainQueue, QObject* parent = nullptr);

    /// Rows leave and come one at a time; a printer that stays keeps its row.
    void setPrinters(const std::vector<Printer>& printers);
    /// What the column with the status shows; the printer's own text without one. Before the first row.
    void setStatusText(std::function<QString(TBUSBPrinterZUL&)> text) { _statusText = std::move(text); }
    /// Reads the facts of all printers again, later.
    void refreshAll();
    Printer printer(int row) const;
    int rowOf(const TBUSBPrinterZUL* printer) const; // -1: none
    /// The pictures follow the window's colours.
    void setPalette(const QPalette& palette);

    QString title(int column) const { return _titles[static_cast<std::size_t>(column)]; }
    void setTitle(int column, const QString& title);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

  Q_SIGNALS:
    /// A fact of the printer in this row has changed.
    void printerChanged(int row);

  private:
    struct Row {
        Printer printer;
        std::unique_ptr<ChangeRelay> relay;
        std::array<QString, columns> texts;
        QIcon picture;
        bool isNewer = false; // the offered firmware, than the installed one
        bool isStale = false; // a refresh is on its way
    };

    std::unique_ptr<Row> makeRow(const Printer& printer);
    void readFacts(Row& row) const;
    void scheduleRefresh(Row& row);

    MainQueue& _mainQueue;
    std::function<QString(TBUSBPrinterZUL&)> _statusText;
    QPalette _palette;
    std::array<QString, columns> _titles;
    std::vector<std::unique_ptr<Row>> _rows;
};

/// The versions of all colour tables of a printer, short: "0161, 600: 0161"; empty when none is known.
QString colorTableText(const TBUSBPrinterZUL& printer);

} // namespace zul::ui
