// Adds, refreshes and removes the cards of updates. GUI thread; MainWindow calls showUpdates when the supervisor
// reports a change.
#include "ui/UpdatePanel.h"

#include "platform/foundation/Bundle.h"
#include "ui/Texts.h"
#include "ui/UpdateCard.h"
#include "update/UpdateSupervisor.h"

#include <QVBoxLayout>
#include <utility>

namespace zul::ui {

UpdatePanel::UpdatePanel(QWidget* parent) : QScrollArea(parent) {
    setWidgetResizable(true);
    setFrameShape(QFrame::StyledPanel); // visible focus: the keyboard scrolls the panel
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    auto* const content = new QWidget(this);
    _cards = new QVBoxLayout(content);
    _cards->setContentsMargins(0, 0, 0, 0);
    _cards->addStretch(1);
    setWidget(content);
    hide();
}

void UpdatePanel::follow(UpdateSupervisor& supervisor) {
    _supervisor = &supervisor;
    setAccessibleName(localized(operatorText("Updates")));
}

int UpdatePanel::wantedHeight() const {
    const int width = viewport()->width();
    const int cards = widget()->hasHeightForWidth() ? widget()->heightForWidth(width) : widget()->sizeHint().height();
    return cards + 2 * frameWidth();
}

// A card that is added at the end comes after this control in the tab order.
QWidget* UpdatePanel::lastControl() {
    for (int place = _cards->count() - 1; place >= 0; --place) {
        if (auto* const card = qobject_cast<UpdateCard*>(_cards->itemAt(place)->widget())) return &card->closeButton();
    }
    return this;
}

void UpdatePanel::showUpdates() {
    if (_supervisor == nullptr) return;
    const auto& updates = _supervisor->updates();
    for (auto card = _cardOfKey.begin(); card != _cardOfKey.end();) {
        const auto update = updates.find(card->first);
        if (update != updates.end() && !update->second.isDismissed) {
            ++card;
            continue;
        }
        _cards->removeWidget(card->second);
        card->second->hide();
        // Not at once: the card may be handling an event.
        card->second->deleteLater();
        card = _cardOfKey.erase(card);
    }
    for (const auto& [key, update] : updates) {
        if (update.isDismissed) continue;
        UpdateCard*& card = _cardOfKey[key];
        if (card == nullptr) {
            card = new UpdateCard(widget());
            QWidget* const before = lastControl();
            _cards->insertWidget(_cards->count() - 1, card);
            setTabOrder(before, &card->closeButton()); // before the details, as on the screen
            // Later: the card must not be deleted while it handles its own click.
            connect(
                card, &UpdateCard::closed, this, [this, dismissed = key] { _supervisor->dismiss(dismissed); },
                Qt::QueuedConnection);
        }
        card->show(update, _supervisor->now());
    }
    setVisible(!_cardOfKey.empty());
    const int wanted = wantedHeight();
    // Only when it differs: making room moves the other panes.
    if (std::exchange(_wanted, wanted) != wanted) Q_EMIT roomChanged();
}

} // namespace zul::ui
