// The view of the details: layout of its columns and rows, how values are drawn, and copying. GUI thread; MainWindow
// calls showPrinter whenever the selection or the selected printer's device info changes.
#include "ui/DetailsPane.h"

#include "Classes/TBUSBPrinterZUL.h"
#include "platform/foundation/Bundle.h"
#include "ui/Details.h"
#include "ui/DetailsModel.h"
#include "ui/Texts.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QEvent>
#include <QHeaderView>
#include <QStyledItemDelegate>
#include <algorithm>
#include <memory>
#include <vector>

namespace zul::ui {

namespace {

constexpr int kRowSpacing = 6; // pixels between the texts of two rows

// Draws values so that long ones wrap, and so that identifiers read from left to right in every language.
class DetailsDelegate final : public QStyledItemDelegate {
  public:
    using QStyledItemDelegate::QStyledItemDelegate;

    // Device IDs and paths have no blanks to wrap at.
    QString displayText(const QVariant& value, const QLocale& /*locale*/) const override {
        return breakable(value.toString(), QLatin1StringView(";/"));
    }

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        return QStyledItemDelegate::sizeHint(option, index) + QSize(0, kRowSpacing);
    }

  protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override {
        QStyledItemDelegate::initStyleOption(option, index);
        if (index.column() != DetailsModel::value) return;
        const Qt::Alignment side = QStyle::visualAlignment(option->direction, Qt::AlignLeft);
        option->displayAlignment = side | Qt::AlignAbsolute | Qt::AlignVCenter;
        option->direction = option->text.isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight;
    }
};

} // namespace

DetailsPane::DetailsPane(QWidget* parent) : QTableView(parent), _model(this) {
    setModel(&_model);
    setItemDelegate(new DetailsDelegate(this));
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setTabKeyNavigation(false); // Tab leaves the pane
    setShowGrid(false);
    setWordWrap(true);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    verticalHeader()->hide();
    horizontalHeader()->hide();
    horizontalHeader()->setStretchLastSection(true);
    horizontalHeader()->setSectionResizeMode(DetailsModel::label, QHeaderView::ResizeToContents);
    // The height of a row depends on the width of its value. Queued, because the header emits this before it has set
    // the width.
    connect(horizontalHeader(), &QHeaderView::sectionResized, this, &QTableView::resizeRowsToContents,
            Qt::QueuedConnection);

    auto* const copy = new QAction(localized(operatorText("Copy")), this);
    copy->setShortcut(QKeySequence::Copy);
    copy->setShortcutContext(Qt::WidgetShortcut);
    connect(copy, &QAction::triggered, this, &DetailsPane::copySelection);
    addAction(copy);
    setContextMenuPolicy(Qt::ActionsContextMenu);
}

void DetailsPane::showPrinter(const std::shared_ptr<TBUSBPrinterZUL>& printer) {
    const std::vector<Detail> details = printer ? detailsOf(*printer) : std::vector<Detail>();
    if (printer && printer == _printer.lock()) {
        _model.update(details);
    } else {
        _model.replace(details);
        scrollToTop();
    }
    _printer = printer;
    resizeRowsToContents();
}

void DetailsPane::copySelection() const {
    QModelIndexList cells = selectionModel()->selectedIndexes(); // in the order in which they were selected
    if (cells.isEmpty()) return;
    // By row, then by column, as they are on the screen.
    std::sort(cells.begin(), cells.end());
    QString text;
    for (qsizetype i = 0; i < cells.size(); ++i) {
        if (i > 0) text += cells[i].row() == cells[i - 1].row() ? u'\t' : u'\n';
        text += cells[i].data().toString();
    }
    QApplication::clipboard()->setText(text);
}

void DetailsPane::changeEvent(QEvent* event) {
    QTableView::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange) resizeRowsToContents();
}

} // namespace zul::ui
