// The menu bar as the controller sees it: plain titles and tool tips, taken from the widgets, localised by the
// controller, and given back. GUI thread.
#pragma once

#include "Classes/Outlets.h"

#include <memory>

class QMenuBar;

namespace zul::ui {

std::shared_ptr<Menu> menuOf(const QMenuBar& bar);
/// Takes over the texts of a menu that was made by menuOf from this bar.
void applyMenu(const Menu& menu, QMenuBar& bar);

} // namespace zul::ui
