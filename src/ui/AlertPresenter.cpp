// The queue of alerts: which one is shown when, and what happens with its answer. Runs on the GUI thread; the engine
// and the window raise alerts through beginAlert.
#include "ui/AlertPresenter.h"

#include "Classes/Outlets.h"
#include "platform/dispatch/Queue.h"
#include "ui/AlertBox.h"
#include "ui/Pictures.h"

#include <QEvent>
#include <algorithm>
#include <utility>

namespace zul::ui {

void AlertPresenter::setWindow(QWidget* window, MainQueue& mainQueue) {
    _window = window;
    _mainQueue = &mainQueue;
    _window->installEventFilter(this);
    showNext();
}

// When one of two alerts closes, some desktops give the focus to the window below the other one, where keys have no
// effect.
bool AlertPresenter::eventFilter(QObject* object, QEvent* event) {
    if (object != _window) return false;
    if (event->type() == QEvent::WindowActivate && !_shown.empty() && _shown.back().box->isVisible()) {
        _shown.back().box->raise();
        _shown.back().box->activateWindow();
    }
    if (changesLook(*event)) {
        for (const Shown& one : _shown) one.box->showLook();
    }
    return false;
}

void AlertPresenter::beginAlert(AlertDescription alert) {
    if (alert.isModal && _window) {
        show(alert);
        return;
    }
    _waiting.push_back(std::move(alert));
    showNext();
}

void AlertPresenter::dismissAll() {
    _waiting.clear();
    for (const Shown& one : std::exchange(_shown, {})) {
        // Otherwise its end would be taken for an answer.
        one.box->disconnect(this);
        delete one.box;
    }
}

// Never while an application-modal alert is shown: a sheet would take the keyboard and the clicks away from it.
void AlertPresenter::showNext() {
    if (!_shown.empty() || _waiting.empty() || !_window) return;
    const AlertDescription next = std::move(_waiting.front());
    _waiting.pop_front();
    show(next);
}

void AlertPresenter::show(const AlertDescription& alert) {
    auto* const box = new AlertBox(alert, *_window, *_mainQueue);
    connect(box, &AlertBox::quitAsked, this, &AlertPresenter::quitAsked);
    connect(box, &QDialog::finished, this, [this, box] { finish(box); });
    // Never exec(): a sheet must not block the main queue, whose blocks may belong to another printer's update.
    if (alert.isModal) {
        box->setModal(true);
        box->show();
    } else {
        box->open();
    }
    _shown.push_back({box, alert.completion});
}

void AlertPresenter::finish(AlertBox* box) {
    const auto found = std::ranges::find(_shown, box, &Shown::box);
    if (found == _shown.end()) return;
    // Out of the list first, because the completion may raise the next alert.
    const auto completion = std::move(found->completion);
    _shown.erase(found);
    const int answer = box->answer();
    box->deleteLater();
    if (completion) completion(answer);
    showNext();
}

} // namespace zul::ui
