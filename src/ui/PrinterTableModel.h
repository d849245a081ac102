// The rows of the table of printers: one snapshot of the shown texts for each printer, in the order of the list. GUI
// thread, which is the main queue's.
#pragma once

#include "Classes/TBUSBPrinterZUL.h"
#include "platform/dispatch/Queue.h"
#include "ui/ChangeRelay.h"
#include "update/PrinterNeed.h"

#include <QAbstractTableModel>
#include <QIcon>
#include <QPalette>
#include <QStringList>
#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zul::ui {

class PrinterTableModel final : public QAbstractTableModel {
    Q_OBJECT

  public:
    using Printer = std::shared_ptr<TBUSBPrinterZUL>;
    /// In the order of the table's columns before the operator moves them.
    enum Column {
        picture,
        state,
        model,
        serialNumber,
        status,
        installedFirmware,
        availableFirmware,
        colorTables,
        lifetimeCounter,
        usbSerialNumber,
        columns
    };

    /// Without printers. mainQueue: where changes of printers are handled; must outlive the model.
    explicit PrinterTableModel(MainQueue& mainQueue, QObject* parent = nullptr);

    /// Shows these printers. Rows are removed and added one at a time; a printer that is still in the list keeps its
    /// row. So does one that has left in the middle of its update: its row is disabled until a printer with its key is
    /// in the list again, or until forgetAway().
    void setPrinters(const std::vector<Printer>& printers);
    /// Sets what the status column shows; otherwise it is the text of the printer's status. Before setPrinters.
    void setStatusText(std::function<QString(TBUSBPrinterZUL&)> text) { _statusText = std::move(text); }
    /// Sets where the state column gets the state of a printer from. Before setPrinters.
    void setNeed(std::function<NeedState(TBUSBPrinterZUL&)> need) { _need = std::move(need); }
    /// Sets where the state of a printer that has left comes from, by its key; nullopt: it does not keep its row.
    /// Before setPrinters.
    void setNeedOfAwaited(std::function<std::optional<NeedState>(const std::string& key)> need) {
        _needOfAwaited = std::move(need);
    }
    /// Removes the rows of printers that have left and are not awaited any more.
    void forgetAway();
    /// Posts a block to the main queue for each printer that reads its texts again.
    void refreshAll();
    /// Reads the state of the printers with this key again, at once.
    void refreshState(const std::string& key);
    /// What the listed printers need, row by row.
    std::vector<PrinterNeed> needs() const;
    /// How many of the listed printers are attached.
    int attachedCount() const;
    /// The first row of an attached printer; -1 if there is none.
    int firstAttachedRow() const;
    /// The printer in this row; null if there is no such row, and for a printer that has left.
    Printer printer(int row) const;
    /// The row of this printer; -1 if it is not listed or has left.
    int rowOf(const TBUSBPrinterZUL* printer) const;
    /// Replaces the pictures by those for a window with this palette.
    void setPalette(const QPalette& palette);

    /// The title above the column.
    QString title(int column) const { return _titles[static_cast<std::size_t>(column)]; }
    /// Sets the title above the column; it is in the operator's language already.
    void setTitle(int column, const QString& title);

    /// How many printers are listed; 0 for a valid parent, because a cell has no children.
    int rowCount(const QModelIndex& parent = {}) const override;
    /// How many columns there are; 0 for a valid parent.
    int columnCount(const QModelIndex& parent = {}) const override;
    /// What a view draws and what a screen reader reads.
    QVariant data(const QModelIndex& index, int role) const override;
    /// No flag for a printer that has left: its row cannot be selected.
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    /// The titles of the columns.
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

  Q_SIGNALS:
    /// Device info of the printer in this row has changed, and its texts have been read again.
    void printerChanged(int row);

  private:
    struct Row {
        Printer printer; // null for one that has left and is awaited: its object and its queue must be able to end
        std::string key;
        std::unique_ptr<ChangeRelay> relay;
        std::array<QString, columns> texts;
        NeedState need;
        QString pictureName;
        QIcon picture;
        bool isNewer = false; // the available firmware is newer than the installed one
        bool isStale = false; // a block that reads the texts again is posted
    };

    std::unique_ptr<Row> makeRow(const Printer& printer);
    void attach(Row& row, const Printer& printer);
    void removeRow(int row);
    bool putIntoItsRow(const Printer& printer);
    void changed(int row);
    void readTexts(Row& row) const;
    void readState(Row& row) const;
    void scheduleRefresh(Row& row);

    MainQueue& _mainQueue;
    std::function<QString(TBUSBPrinterZUL&)> _statusText;
    std::function<NeedState(TBUSBPrinterZUL&)> _need;
    std::function<std::optional<NeedState>(const std::string& key)> _needOfAwaited;
    QPalette _palette;
    std::array<QString, columns> _titles;
    std::vector<std::unique_ptr<Row>> _rows;
};

/// The versions of all colour tables of a printer, short: "0161, 600: 0161"; empty when none is known.
QString colorTableText(const TBUSBPrinterZUL& printer);

} // namespace zul::ui
