// Follows the engine's list of printers and keeps selection and highlighted row the same. GUI thread: called by the
// table when the operator selects a row, by the engine's controller, and on changes of its list.
#include "ui/PrinterArrayController.h"

#include "Classes/TBPrinters.h"
#include "platform/dispatch/Queue.h"
#include "ui/ChangeRelay.h"
#include "ui/PrinterTable.h"
#include "ui/PrinterTableModel.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace zul::ui {

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
    // The view selects another row by itself when the selected one is removed; the selection is decided below.
    _table.changeQuietly([&] { _model.setPrinters(content); });
    Q_EMIT contentChanged();
    if (_selection && _model.rowOf(_selection.get()) >= 0) {
        _table.mirrorRow(_model.rowOf(_selection.get()));
        return;
    }
    _table.mirrorRow(-1);
    if (_avoidsEmptySelection && _model.attachedCount() > 0) {
        _table.selectRow(0); // as if by the operator: the engine's selection handler must run
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
    if (row < 0) return;
    _table.mirrorRow(row);
    select(objects.front());
}

void PrinterArrayController::select(Printer printer) {
    if (printer == _selection) return;
    _selection = std::move(printer);
    Q_EMIT selectionChanged();
}

} // namespace zul::ui
