// The colors of meaning, and the symbols of the states as paths, so that they are sharp at every scale and take any
// color. GUI thread: called by the delegate of the table.
#include "ui/Look.h"

#include "ui/Pictures.h"
#include "update/PrinterNeed.h"

#include <QPainter>
#include <QPainterPath>
#include <QPen>

namespace zul::ui {

namespace {

struct ToneColors {
    QRgb light;
    QRgb dark;
};

ToneColors colorsOf(NeedTone tone) {
    switch (tone) {
    case NeedTone::good:
        return {0xFF1E7A46, 0xFF7AD3A0};
    case NeedTone::underWay:
        return {0xFF2563B8, 0xFF6EA8F7};
    case NeedTone::attention:
        return {0xFF8A5A00, 0xFFF0C46A};
    case NeedTone::failed:
        return {0xFFB3261E, 0xFFFF9D94};
    case NeedTone::neutral:
        break;
    }
    return {0xFF5C6672, 0xFFA3ADB9};
}

// All paths are drawn in a square with a side of 14.
QPainterPath symbolOf(PrinterNeed need) {
    QPainterPath path;
    const auto line = [&path](QPointF from, QPointF to) {
        path.moveTo(from);
        path.lineTo(to);
    };
    switch (need) {
    case PrinterNeed::upToDate: // a tick
        path.moveTo(2, 7.5);
        path.lineTo(5.5, 11);
        path.lineTo(12, 3.5);
        break;
    case PrinterNeed::updateAvailable: // an arrow up
        line({7, 12}, {7, 2.5});
        path.moveTo(3, 6.5);
        path.lineTo(7, 2.5);
        path.lineTo(11, 6.5);
        break;
    case PrinterNeed::newerInstalled: // an arrow down
        line({7, 2}, {7, 11.5});
        path.moveTo(3, 7.5);
        path.lineTo(7, 11.5);
        path.lineTo(11, 7.5);
        break;
    case PrinterNeed::updating:
    case PrinterNeed::restarting: // an open ring
        path.arcMoveTo(2, 2, 10, 10, 60);
        path.arcTo(2, 2, 10, 10, 60, 290);
        break;
    case PrinterNeed::inUse:
    case PrinterNeed::noPermission: // a lock
        path.addRoundedRect(3, 6.5, 8, 6, 1, 1);
        path.moveTo(4.5, 6.5);
        path.lineTo(4.5, 4.5);
        path.arcTo(4.5, 2, 5, 5, 180, -180);
        path.lineTo(9.5, 6.5);
        break;
    case PrinterNeed::interrupted:
    case PrinterNeed::fileMissing:
    case PrinterNeed::fileDamaged: // a cross
        line({3, 3}, {11, 11});
        line({11, 3}, {3, 11});
        break;
    case PrinterNeed::notReady:
    case PrinterNeed::notAnswering: // an exclamation mark
        line({7, 2}, {7, 8.5});
        line({7, 11.9}, {7, 12});
        break;
    case PrinterNeed::unknown: // three dots
        for (const double x : {3.0, 7.0, 11.0}) line({x, 7}, {x + 0.1, 7});
        break;
    }
    return path;
}

} // namespace

QColor colorOf(NeedTone tone, const QPalette& palette) {
    const ToneColors colors = colorsOf(tone);
    return QColor::fromRgba(isDark(palette) ? colors.dark : colors.light);
}

QColor secondaryText(const QPalette& palette) {
    return colorOf(NeedTone::neutral, palette);
}

void drawSymbol(QPainter& painter, const QRectF& square, PrinterNeed need) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    QPen pen(painter.pen().color(), 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    painter.translate(square.topLeft());
    painter.scale(square.width() / look::kSymbol, square.height() / look::kSymbol);
    painter.drawPath(symbolOf(need));
    painter.restore();
}

} // namespace zul::ui
