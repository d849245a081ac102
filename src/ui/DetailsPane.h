// The details of the selected printer: two columns, label and value, whose cells can be selected and copied. GUI
// thread, which is the main queue's; MainWindow owns it.
#pragma once

#include "Classes/TBUSBPrinterZUL.h"
#include "ui/DetailsModel.h"

#include <QTableView>
#include <memory>

namespace zul::ui {

class DetailsPane final : public QTableView {
    Q_OBJECT

  public:
    /// Empty until showPrinter is called.
    explicit DetailsPane(QWidget* parent = nullptr);

    /// Shows what is known about the printer now; null shows nothing. For the printer that is shown already, selection
    /// and scroll position are kept.
    void showPrinter(const std::shared_ptr<TBUSBPrinterZUL>& printer);
    /// Copies the selected cells to the clipboard as shown: cells of a line separated by tabs, lines by line feeds.
    /// Leaves the clipboard alone if no cell is selected.
    void copySelection() const;

  protected:
    void changeEvent(QEvent* event) override;

  private:
    DetailsModel _model;
    std::weak_ptr<TBUSBPrinterZUL> _printer; // the one that is shown
};

} // namespace zul::ui
