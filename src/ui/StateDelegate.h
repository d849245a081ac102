// Draws the state of a printer in its row: symbol and word in the color of its meaning, and under them the reason, or a
// bar while it is being updated. GUI thread.
#pragma once

#include "update/PrinterNeed.h"

#include <QStyledItemDelegate>

namespace zul::ui {

class StateDelegate final : public QStyledItemDelegate {
    Q_OBJECT

  public:
    using QStyledItemDelegate::QStyledItemDelegate;

    /// The model's role whose value is the NeedState of the row.
    static constexpr int kStateRole = Qt::UserRole;

    /// Draws the cell. The word is always there: the color alone means nothing.
    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    /// Wide enough for the symbol and the longest word.
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace zul::ui

Q_DECLARE_METATYPE(zul::NeedState)
