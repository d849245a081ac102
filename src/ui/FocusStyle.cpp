// Draws the focus frames that the desktop's style leaves out, so that the keyboard's position is always visible.
// GUI thread; called by the toolkit whenever it paints.
#include "ui/FocusStyle.h"

#include <QAbstractScrollArea>
#include <QPainter>
#include <QStyleOptionFocusRect>

namespace zul::ui {

namespace {

constexpr int kInset = 3; // from the edge of a button, in pixels

bool hasFocus(const QStyleOption* option) {
    return option->state.testFlag(QStyle::State_HasFocus) && option->state.testFlag(QStyle::State_Enabled);
}

void drawFrame(QPainter* painter, const QRect& rect, const QColor& color, Qt::PenStyle line) {
    painter->save();
    painter->setPen(QPen(color, 1, line));
    painter->setBrush(Qt::NoBrush);
    painter->drawRect(rect.adjusted(0, 0, -1, -1));
    painter->restore();
}

} // namespace

void FocusStyle::drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                             const QWidget* widget) const {
    QProxyStyle::drawControl(element, option, painter, widget);
    if (!hasFocus(option)) return;
    if (element == CE_PushButton) {
        drawFrame(painter, option->rect.adjusted(kInset, kInset, -kInset, -kInset),
                  option->palette.color(QPalette::ButtonText), Qt::DotLine);
    } else if (element == CE_ShapedFrame && qobject_cast<const QAbstractScrollArea*>(widget) != nullptr) {
        drawFrame(painter, option->rect, option->palette.color(QPalette::Highlight), Qt::SolidLine);
    }
}

void FocusStyle::drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                               const QWidget* widget) const {
    if (const auto* focus = qstyleoption_cast<const QStyleOptionFocusRect*>(option);
        element == PE_FrameFocusRect && focus != nullptr) {
        QStyleOptionFocusRect always(*focus);
        always.state |= State_KeyboardFocusChange;
        QProxyStyle::drawPrimitive(element, &always, painter, widget);
        return;
    }
    QProxyStyle::drawPrimitive(element, option, painter, widget);
}

} // namespace zul::ui
