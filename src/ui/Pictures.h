// The program's drawings: one for each picture name of the engine, icons for the actions, each for light and for dark
// windows. GUI thread.
#pragma once

#include <QIcon>
#include <QPalette>
#include <QString>

namespace zul::ui {

/// Light text on a dark window.
bool isDark(const QPalette& palette);
/// The drawing with this name ("ZUL_VK_Series", "action-update") for windows with this palette; a null icon when there
/// is none. Sharp at every size and resolution.
QIcon pictureNamed(const QString& name, const QPalette& palette);
/// The same with a warning sign in its corner, for alerts that warn of what cannot be undone.
QPixmap warningPicture(const QIcon& picture, int size, qreal devicePixelRatio);
QIcon applicationIcon();

} // namespace zul::ui
