// The program's drawings: one for each picture name of the engine, icons for the actions, each for light and for dark
// windows. GUI thread.
#pragma once

#include <QIcon>
#include <QPalette>
#include <QString>

class QEvent;

namespace zul::ui {

/// True for light text on a dark window.
bool isDark(const QPalette& palette);
/// True if a widget that gets this event must draw its pictures again: its colours have changed, or it is on a screen
/// with another resolution.
bool changesLook(const QEvent& event);
/// The drawing with this name ("ZUL_VK_Series", "action-update") for windows with this palette; a null icon if there is
/// no such drawing. Sharp at every size and resolution.
QIcon pictureNamed(const QString& name, const QPalette& palette);
/// This picture with a warning sign in its corner, for alerts about operations that cannot be undone. size: of the
/// picture's side, in device-independent pixels.
QPixmap warningPicture(const QIcon& picture, int size, qreal devicePixelRatio);
/// The program's own icon, for its windows.
QIcon applicationIcon();

} // namespace zul::ui
