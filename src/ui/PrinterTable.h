// The table of printers as the engine's controller sees it: the selection of the view in the window. GUI thread, which
// is the main queue's.
#pragma once

#include "Classes/Outlets.h"
#include "ui/PrinterTableModel.h"

#include <QObject>
#include <QTableView>
#include <cstddef>
#include <functional>
#include <string>

namespace zul::ui {

/// The view's selection. Changes made by the operator or by the engine's controller are reported with a signal; changes
/// that only mirror the array controller are not.
class PrinterTable final : public QObject, public TableOutlet {
    Q_OBJECT

  public:
    /// Makes view show model. Both must outlive the table.
    PrinterTable(QTableView& view, PrinterTableModel& model);

    /// How many attached printers are listed.
    int numberOfRows() const override;
    /// The highlighted row; -1 if there is none.
    int selectedRow() const override;
    /// Highlights the row and reports that, unless it is highlighted already. -1 removes the highlight. Instead of the
    /// row of a printer that has left, the first one of an attached printer is highlighted.
    void selectRow(int row) override;
    /// How many columns the table has, hidden ones included.
    std::size_t numberOfColumns() const override { return PrinterTableModel::columns; }
    /// The title above the column.
    std::string columnTitle(std::size_t column) const override;
    /// Sets the title above the column; it is in the operator's language already.
    void setColumnTitle(std::size_t column, const std::string& title) override;
    /// Draws the table again.
    void setNeedsDisplay() override;

    /// Highlights the row without a signal; -1 removes the highlight.
    void mirrorRow(int row);
    /// Runs change, during which the view may change its selection by itself, without a signal.
    void changeQuietly(const std::function<void()>& change);

  Q_SIGNALS:
    /// Another row is highlighted, or none.
    void selectionDidChange();

  protected:
    bool eventFilter(QObject* object, QEvent* event) override;

  private:
    void showRow(int row);

    QTableView& _view;
    PrinterTableModel& _model;
    int _quiet = 0; // depth of nested changeQuietly calls
};

} // namespace zul::ui
