#include "ui/Pictures.h"

#include <QApplication>
#include <QFile>
#include <QPainter>
#include <QStyle>

// The pictures are in a library: without this the linker would leave them out. It must be outside every namespace.
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
