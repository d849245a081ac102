// Looks up the SVG drawings that are built into the program, in their light or dark form. GUI thread; called by every
// widget that shows a picture.
#include "ui/Pictures.h"

#include <QApplication>
#include <QEvent>
#include <QFile>
#include <QPainter>
#include <QStyle>

// The pictures are in a static library: without this call the linker would leave them out. Q_INIT_RESOURCE does not
// work inside a namespace.
static void keepPictures() {
    Q_INIT_RESOURCE(pictures);
}

namespace zul::ui {

namespace {

constexpr double kSignShare = 0.5; // of the picture's side

QIcon iconOfFile(const QString& name) {
    keepPictures();
    const QString file = ":/pictures/" + name + ".svg";
    return QFile::exists(file) ? QIcon(file) : QIcon();
}

} // namespace

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < palette.color(QPalette::WindowText).lightness();
}

bool changesLook(const QEvent& event) {
    return event.type() == QEvent::PaletteChange || event.type() == QEvent::ScreenChangeInternal;
}

QIcon pictureNamed(const QString& name, const QPalette& palette) {
    if (name.isEmpty()) return {};
    if (isDark(palette)) {
        const QIcon dark = iconOfFile(name + "-dark");
        if (!dark.isNull()) return dark;
    }
    return iconOfFile(name);
}

QPixmap warningPicture(const QIcon& picture, int size, qreal devicePixelRatio) {
    QPixmap pixmap = picture.pixmap(QSize(size, size), devicePixelRatio);
    const int side = static_cast<int>(size * kSignShare);
    QPainter painter(&pixmap);
    QApplication::style()
        ->standardIcon(QStyle::SP_MessageBoxWarning)
        .paint(&painter, size - side, size - side, side, side);
    return pixmap;
}

QIcon applicationIcon() {
    return iconOfFile("zul-printer-utility");
}

} // namespace zul::ui
