// The list of printers as the window shows it, and the one selection in it, which the table mirrors. GUI thread, which
// is the main queue's; the engine's controller is connected to it.
#pragma once

#include "Classes/Outlets.h"
#include "Classes/TBPrinters.h"
#include "platform/dispatch/Queue.h"
#include "ui/ChangeRelay.h"
#include "ui/PrinterTable.h"
#include "ui/PrinterTableModel.h"

#include <QObject>
#include <memory>
#include <vector>

namespace zul::ui {

class PrinterArrayController final : public QObject, public ArrayControllerOutlet {
    Q_OBJECT

  public:
    using Printer = PrinterTableModel::Printer;

    /// table shows model; both must outlive the controller.
    PrinterArrayController(PrinterTable& table, PrinterTableModel& model);
    /// Shows this list from now on, and follows its changes.
    void bindTo(MainQueue& mainQueue, const std::shared_ptr<TBPrinters>& printers);

    /// No effect: the selection is a printer, not a row, so a selected printer stays selected while it is attached.
    void setPreservesSelection(bool) override {}
    /// If true, the first printer is selected when no other one is.
    void setAvoidsEmptySelection(bool avoids) override { _avoidsEmptySelection = avoids; }
    /// No effect: printers are inserted into the list that this object follows, never through this object.
    void setSelectsInsertedObjects(bool) override {}
    /// Selects the first of these printers without calling the table's selection handler. Does nothing if it is not in
    /// the list.
    void setSelectedObjects(const std::vector<Printer>& objects) override;

    /// The selected printer, which is the highlighted row and the target of all actions; null if there is none.
    Printer selection() const { return _selection; }

  Q_SIGNALS:
    /// selection() is another printer, or none.
    void selectionChanged();
    /// A printer was added or removed.
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
