// The desktop's style with a visible focus on every control. GUI thread; set once by main.
#pragma once

#include <QProxyStyle>

namespace zul::ui {

/// Styles show the focus of some controls only after the Tab key was pressed, and that of others not at all: a default
/// button looks the same with and without focus. People who use only the keyboard must see where the focus is.
class FocusStyle final : public QProxyStyle {
    Q_OBJECT

  public:
    /// Draws the control as the desktop does, and a frame in a button or around a scroll area with focus.
    void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override;
    /// Draws the primitive as the desktop does; a focus frame also if the focus did not come by key.
    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override;
};

} // namespace zul::ui
