// The table of printers as the controller sees it, around the view in the window; and the array controller, which holds
// the one selection that the view mirrors. GUI thread.
#pragma once

#include "Classes/Outlets.h"
#include "Classes/TBPrinters.h"
#include "ui/ChangeRelay.h"
#include "ui/PrinterTableModel.h"

#include <QObject>
#include <QTableView>
#include <functional>
#include <memory>
#include <vector>

namespace zul::ui {

/// The view's selection. Changes that the operator or the controller makes here are reported; those that only mirror
/// the array controller are not.
class PrinterTable final : public QObject, public TableOutlet {
    Q_OBJECT

  public:
    PrinterTable(QTableView& view, PrinterTableModel& model);

    int numberOfRows() const override;
    int selectedRow() const override;
    void selectRow(int row) override;
    std::size_t numberOfColumns() const override { return PrinterTableModel::columns; }
    std::string columnTitle(std::size_t column) const override;
    void setColumnTitle(std::size_t column, const std::string& title) override;
    void setNeedsDisplay() override;

    /// Shows the row as selected without telling anybody; -1 shows none.
    void mirrorRow(int row);
    /// Runs change, during which the selection may move by itself, without telling anybody.
    void changeQuietly(const std::function<void()>& change);

  Q_SIGNALS:
    void selectionDidChange();

  protected:
    bool eventFilter(QObject* object, QEvent* event) override;

  private:
    void showRow(int row);

    QTableView& _view;
    PrinterTableModel& _model;
    int _quiet = 0;
};

class PrinterArrayController final : public QObject, public ArrayControllerOutlet {
    Q_OBJECT

  public:
    using Printer = std::shared_ptr<TBUSBPrinterZUL>;

    PrinterArrayController(PrinterTable& table, PrinterTableModel& model);
    /// Follows the controller's list from now on.
    void bindTo(MainQueue& mainQueue, const std::shared_ptr<TBPrinters>& printers);

    // Either way: the selection is a printer, not a row, so one that stays attached stays selected.
    void setPreservesSelection(bool) override {}
    void setAvoidsEmptySelection(bool avoids) override { _avoidsEmptySelection = avoids; }
    // Either way: printers come and go in the list that this follows; nothing is ever inserted through here.
    void setSelectsInsertedObjects(bool) override {}
    void setSelectedObjects(const std::vector<Printer>& objects) override;

    /// The selected printer: what the highlighted row shows and what actions go to; null when there is none.
    Printer selection() const { return _selection; }

  Q_SIGNALS:
    void selectionChanged();
    void contentChanged();

  private:
    void contentDidChange(const std::vector<Printer>& content);
    void tableDidChange();
    void select(Printer printer);

    PrinterTable& _table;
    PrinterTableModel& _model;
    std::shared_ptr<TBPrinters> _printers;
    std::unique_ptr<ChangeRelay> _relay;
    Printer _selection;
    bool _avoidsEmptySelection = false;
};

} // namespace zul::ui
