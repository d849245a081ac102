// Selection and scrolling of the printers' view. GUI thread: called by the engine's controller and by the array
// controller, and by the view when the operator selects a row.
#include "ui/PrinterTable.h"

#include "ui/PrinterTableModel.h"
#include "ui/Texts.h"

#include <QEvent>
#include <QItemSelectionModel>
#include <QTimer>
#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>

namespace zul::ui {

PrinterTable::PrinterTable(QTableView& view, PrinterTableModel& model) : _view(view), _model(model) {
    _view.setModel(&_model);
    connect(_view.selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        if (_quiet == 0) Q_EMIT selectionDidChange();
    });
    // A click moves the focus to the clicked row even if another row has been selected meanwhile. Move it back to the
    // selected row, or the two would show different printers.
    connect(_view.selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this] { QTimer::singleShot(0, this, [this] { changeQuietly([this] { showRow(selectedRow()); }); }); });
    _view.viewport()->installEventFilter(this);
}

// Updates take height from the table: the selected row must stay visible.
bool PrinterTable::eventFilter(QObject* object, QEvent* event) {
    if (event->type() == QEvent::Resize) {
        QTimer::singleShot(0, this, [this] {
            if (selectedRow() >= 0)
                _view.scrollTo(_model.index(selectedRow(), std::max(_view.currentIndex().column(), 0)));
        });
    }
    return QObject::eventFilter(object, event);
}

int PrinterTable::numberOfRows() const {
    return _model.attachedCount();
}

int PrinterTable::selectedRow() const {
    const QModelIndexList rows = _view.selectionModel()->selectedRows();
    return rows.isEmpty() ? -1 : rows.first().row();
}

void PrinterTable::selectRow(int row) {
    // The row of a printer that restarts cannot be selected.
    const int chosen = row >= 0 && !_model.printer(row) ? _model.firstAttachedRow() : row;
    if (chosen != selectedRow()) showRow(chosen);
}

void PrinterTable::showRow(int row) {
    QItemSelectionModel& selection = *_view.selectionModel();
    if (row < 0) {
        selection.clear();
        return;
    }
    const int column = std::max(_view.currentIndex().column(), 0);
    selection.select(_model.index(row, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    if (_view.currentIndex().row() != row) {
        selection.setCurrentIndex(_model.index(row, column), QItemSelectionModel::NoUpdate);
    }
    _view.scrollTo(_model.index(row, column));
}

void PrinterTable::mirrorRow(int row) {
    changeQuietly([&] { showRow(row); });
}

void PrinterTable::changeQuietly(const std::function<void()>& change) {
    ++_quiet;
    change();
    --_quiet;
}

std::string PrinterTable::columnTitle(std::size_t column) const {
    return _model.title(static_cast<int>(column)).toStdString();
}

void PrinterTable::setColumnTitle(std::size_t column, const std::string& title) {
    _model.setTitle(static_cast<int>(column), qtext(title));
}

void PrinterTable::setNeedsDisplay() {
    _view.viewport()->update();
}

} // namespace zul::ui
