// Copies texts between the actions of the menu bar and the engine's description of it, in the same order. GUI thread;
// called by MainWindow when it is built and when its texts are translated.
#include "ui/MenuMirror.h"

#include "Classes/Outlets.h"
#include "ui/Texts.h"

#include <QAction>
#include <QMenu>
#include <QMenuBar>
#include <QRegularExpression>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace zul::ui {

namespace {

// For tool buttons, which have no access keys. Some languages put the key in brackets after the text.
QString withoutAccessKey(QString text) {
    static const QRegularExpression key("\\(&[A-Z]\\)$");
    return text.remove(key).remove('&');
}

std::vector<MenuItem> itemsOf(const QList<QAction*>& actions) {
    std::vector<MenuItem> items;
    for (const QAction* action : actions) {
        MenuItem item;
        item.title = action->text().toStdString();
        item.isSeparator = action->isSeparator();
        if (const QMenu* menu = action->menu()) {
            item.submenu = std::make_shared<Menu>();
            item.submenu->title = menu->title().toStdString();
            item.submenu->items = itemsOf(menu->actions());
        } else {
            item.toolTip = action->toolTip().toStdString();
        }
        items.push_back(std::move(item));
    }
    return items;
}

void applyItems(const std::vector<MenuItem>& items, const QList<QAction*>& actions) {
    for (std::size_t i = 0; i < items.size(); ++i) {
        QAction* const action = actions.at(static_cast<qsizetype>(i));
        const MenuItem& item = items[i];
        if (item.isSeparator) continue;
        if (item.submenu) {
            action->menu()->setTitle(qtext(item.submenu->title));
            action->setIconText(withoutAccessKey(qtext(item.submenu->title)));
            applyItems(item.submenu->items, action->menu()->actions());
        } else {
            action->setText(qtext(item.title));
            action->setIconText(withoutAccessKey(qtext(item.title)));
            action->setToolTip(qtext(item.toolTip));
            // Kept a second time, because the tool tip of a disabled action is replaced by the reason.
            action->setStatusTip(qtext(item.toolTip));
        }
    }
}

} // namespace

std::shared_ptr<Menu> menuOf(const QMenuBar& bar) {
    auto menu = std::make_shared<Menu>();
    menu->items = itemsOf(bar.actions());
    return menu;
}

void applyMenu(const Menu& menu, QMenuBar& bar) {
    applyItems(menu.items, bar.actions());
}

} // namespace zul::ui
