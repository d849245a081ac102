// The desktop's style, with a focus that can be seen wherever it is. GUI thread.
#pragma once

#include <QProxyStyle>

namespace zul::ui {

/// Styles show the focus of some controls only after the Tab key, and that of others not at all: a default button looks
/// the same with and without it. Who works with the keyboard alone must see where it is.
class FocusStyle final : public QProxyStyle {
    Q_OBJECT

  public:
    void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override;
    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override;
};

} // namespace zul::ui
