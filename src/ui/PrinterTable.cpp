#include "ui/PrinterTable.h"

#include "ui/Texts.h"

#include <QEvent>
#include <QItemSelectionModel>
#include <QTimer>
#include <algorithm>

namespace zul::ui {

// ---- the table ------------------------------------------------------------------------------------------------------

PrinterTable::PrinterTable(QTableView& view, PrinterTableModel& model) : _view(view), _model(model) {
    _view.setModel(&_model);
    connect(_view.selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        if (_quiet == 0) Q_EMIT selectionDidChange();
    });
    // A click puts the focus on the row it hits, also when the selection has gone elsewhere meanwhile: the two must
    // not show different printers.
    connect(_view.selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this] { QTimer::singleShot(0, this, [this] { changeQuietly([this] { showRow(selectedRow()); }); }); });
    _view.viewport()->installEventFilter(this);
}

// An update takes its place from the table: the row that it is about stays in sight.
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
    return _model.rowCount();
}

int PrinterTable::selectedRow() const {
    const QModelIndexList rows = _view.selectionModel()->selectedRows();
    return rows.isEmpty() ? -1 : rows.first().row();
}

void PrinterTable::selectRow(int row) {
    if (row == selectedRow()) return;
    showRow(row);
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

// ---- the array controller -------------------------------------------------------------------------------------------

PrinterArrayController::PrinterArrayController(PrinterTable& table, PrinterTableModel& model)
    : _table(table), _model(model) {
    connect(&_table, &PrinterTable::selectionDidChange, this, &PrinterArrayController::tableDidChange);
}

void PrinterArrayController::bindTo(MainQueue& mainQueue, const std::shared_ptr<TBPrinters>& printers) {
    _printers = printers;
    _relay = std::make_unique<ChangeRelay>(mainQueue, printers, "printers",
                                           [this](const std::string&) { contentDidChange(_printers->printers()); });
    contentDidChange(_printers->printers());
}

void PrinterArrayController::contentDidChange(const std::vector<Printer>& content) {
    _table.changeQuietly([&] { _model.setPrinters(content); });
    Q_EMIT contentChanged();
    if (_selection && _model.rowOf(_selection.get()) >= 0) {
        _table.mirrorRow(_model.rowOf(_selection.get()));
        return;
    }
    _table.mirrorRow(-1);
    if (_avoidsEmptySelection && _model.rowCount() > 0) {
        _table.selectRow(0); // as the operator would: the controller hears of it
    } else {
        select(nullptr);
    }
}

void PrinterArrayController::tableDidChange() {
    select(_model.printer(_table.selectedRow()));
    if (_printers) _printers->tableViewSelectionDidChange(&_table);
}

void PrinterArrayController::setSelectedObjects(const std::vector<Printer>& objects) {
    const int row = objects.empty() ? -1 : _model.rowOf(objects.front().get());
    if (row < 0) return; // not in the list, or not yet
    _table.mirrorRow(row);
    select(objects.front());
}

void PrinterArrayController::select(Printer printer) {
    if (printer == _selection) return;
    _selection = std::move(printer);
    Q_EMIT selectionChanged();
}

} // namespace zul::ui
