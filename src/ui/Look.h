// The measures and colors of the window in one place. Text, window and accent colors are the desktop's; the colors of
// meaning are chosen here, for light and for dark windows, with a contrast of at least 4.5 to 1 on the window's ground.
// GUI thread.
#pragma once

#include "update/PrinterNeed.h"

#include <QColor>
#include <QPalette>

class QPainter;
class QRectF;

namespace zul::ui {

namespace look {
inline constexpr int kSymbol = 14;    // side of the symbol in front of a state
inline constexpr int kSymbolGap = 6;  // between it and the word
inline constexpr int kCellMargin = 6; // inside a cell, at each side
inline constexpr int kBar = 5;        // height of the bar in a row
} // namespace look

/// The color of text and symbols with this meaning, for windows with this palette.
QColor colorOf(NeedTone tone, const QPalette& palette);
/// The text color of secondary texts, for windows with this palette.
QColor secondaryText(const QPalette& palette);
/// Draws the symbol of a state into the square, in the painter's current color.
void drawSymbol(QPainter& painter, const QRectF& square, PrinterNeed need);

} // namespace zul::ui
