// The menu bar as the engine's controller sees it: titles and tool tips without widgets. They are copied from the
// widgets, translated by the controller, and copied back. GUI thread; MainWindow calls this.
#pragma once

#include "Classes/Outlets.h"

#include <memory>

class QMenuBar;

namespace zul::ui {

/// A copy of the texts of the menu bar and all its menus.
std::shared_ptr<Menu> menuOf(const QMenuBar& bar);
/// Sets the texts of the menu bar, its menus and the tool bar from a menu that menuOf made from this bar.
void applyMenu(const Menu& menu, QMenuBar& bar);

} // namespace zul::ui
