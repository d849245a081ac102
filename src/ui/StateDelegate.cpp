// Paints the cells of the state column from the state that the model gives: a symbol and a word, and under them the
// reason or a bar. GUI thread: called by the table's view.
#include "ui/StateDelegate.h"

#include "ui/Look.h"
#include "ui/Texts.h"
#include "update/PrinterNeed.h"

#include <QApplication>
#include <QPainter>
#include <QStyle>
#include <algorithm>

namespace zul::ui {

namespace {

QFont bold(QFont font) {
    font.setBold(true);
    return font;
}

void drawBar(QPainter& painter, const QRect& line, double share, const QColor& color) {
    const QRectF ground(line.left(), line.center().y() - look::kBar / 2.0, line.width(), look::kBar);
    QColor pale = color;
    pale.setAlphaF(0.2F);
    painter.setPen(Qt::NoPen);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(pale);
    painter.drawRoundedRect(ground, look::kBar / 2.0, look::kBar / 2.0);
    painter.setBrush(color);
    QRectF done = ground;
    done.setWidth(ground.width() * share);
    painter.drawRoundedRect(done, look::kBar / 2.0, look::kBar / 2.0);
}

} // namespace

void StateDelegate::paint(QPainter* painter, const QStyleOptionViewItem& given, const QModelIndex& index) const {
    QStyleOptionViewItem option = given;
    initStyleOption(&option, index);
    option.text.clear(); // the style draws the ground and the focus only
    const QStyle* const style = option.widget != nullptr ? option.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &option, painter, option.widget);

    const auto state = index.data(kStateRole).value<NeedState>();
    const bool isSelected = option.state.testFlag(QStyle::State_Selected);
    const QColor selectedText = option.palette.color(QPalette::HighlightedText);
    const QColor color = isSelected ? selectedText : colorOf(toneOf(state.need), option.palette);
    const QRect cell = option.rect.adjusted(look::kCellMargin, 0, -look::kCellMargin, 0);
    const QFont wordFont = bold(option.font);
    const int wordHeight = QFontMetrics(wordFont).height();
    const int detailHeight = option.fontMetrics.height();
    const bool hasSecondLine = state.share || !state.detail.empty();
    const int height = hasSecondLine ? wordHeight + detailHeight : wordHeight;
    QRect line(cell.left(), cell.center().y() - height / 2, cell.width(), wordHeight);

    painter->save();
    painter->setPen(color);
    const QRectF symbol(line.left(), line.center().y() - look::kSymbol / 2.0, look::kSymbol, look::kSymbol);
    drawSymbol(*painter, symbol, state.need);
    line.setLeft(line.left() + look::kSymbol + look::kSymbolGap);
    painter->setFont(wordFont);
    const QString percent = state.share ? QString("%1 %").arg(static_cast<int>(*state.share * 100)) : QString();
    const QString word = QFontMetrics(wordFont).elidedText(qtext(state.word), Qt::ElideRight, line.width());
    painter->drawText(line, Qt::AlignLeft | Qt::AlignVCenter, word);
    painter->setFont(option.font);
    painter->setPen(isSelected ? selectedText : secondaryText(option.palette));
    painter->drawText(line, Qt::AlignRight | Qt::AlignVCenter, percent);
    const QRect second(line.left(), line.bottom() + 1, line.width(), detailHeight);
    if (state.share) {
        drawBar(*painter, second, *state.share, color);
    } else {
        painter->drawText(second, Qt::AlignLeft | Qt::AlignVCenter,
                          option.fontMetrics.elidedText(qtext(state.detail), Qt::ElideRight, second.width()));
    }
    painter->restore();
}

QSize StateDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    const QFontMetrics word(bold(option.font));
    int widest = 0;
    for (int need = 0; need < kPrinterNeeds; ++need) {
        widest = std::max(widest, word.horizontalAdvance(qtext(wordFor(static_cast<PrinterNeed>(need)))));
    }
    const int width = widest + look::kSymbol + look::kSymbolGap + 2 * look::kCellMargin;
    return {width, QStyledItemDelegate::sizeHint(option, index).height()};
}

} // namespace zul::ui
