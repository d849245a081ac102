// Everything that is known about one printer, as text that can be selected and copied. GUI thread.
#pragma once

#include "Classes/TBUSBPrinterZUL.h"

#include <QTextCursor>
#include <QTextEdit>
#include <memory>
#include <utility>
#include <vector>

namespace zul::ui {

/// Label and value, in reading order; what is not known is left out.
std::vector<std::pair<QString, QString>> detailsOf(TBUSBPrinterZUL& printer);

class DetailsPane final : public QTextEdit {
    Q_OBJECT

  public:
    explicit DetailsPane(QWidget* parent = nullptr);
    /// Null: nothing is selected.
    void show(const std::shared_ptr<TBUSBPrinterZUL>& printer);

  private:
    QTextCursor cursorBetween(int anchor, int position) const;

    QString _shown;
    std::weak_ptr<TBUSBPrinterZUL> _printer; // whose facts are shown
};

} // namespace zul::ui
