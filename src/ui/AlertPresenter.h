// Decides when the engine's alerts are shown, and which: sheets on the main window one at a time, in the order in which
// they were raised, and application-modal alerts at once. GUI thread, which is the main queue's.
#pragma once

#include "Classes/Outlets.h"
#include "platform/dispatch/Queue.h"

#include <QObject>
#include <QPointer>
#include <QWidget>
#include <deque>
#include <functional>
#include <vector>

namespace zul::ui {

class AlertBox;

class AlertPresenter final : public QObject, public AlertOutlet {
    Q_OBJECT

  public:
    AlertPresenter() = default;
    /// Shows all alerts on this window from now on; until then they wait. mainQueue handles the changes that enable
    /// buttons, and must outlive the alerts.
    void setWindow(QWidget* window, MainQueue& mainQueue);

    /// Shows a modal alert at once and a sheet when it is its turn. Main queue; returns at once.
    void beginAlert(AlertDescription alert) override;

    /// Removes all alerts, shown and waiting, without an answer, and releases the objects that they hold.
    void dismissAll();

  Q_SIGNALS:
    /// The operator wants to end the program while an alert is shown.
    void quitAsked();

  protected:
    bool eventFilter(QObject* object, QEvent* event) override;

  private:
    struct Shown {
        AlertBox* box;
        std::function<void(int answer)> completion;
    };
    void showNext();
    void show(const AlertDescription& alert);
    void finish(AlertBox* box);

    QPointer<QWidget> _window;
    MainQueue* _mainQueue = nullptr;
    std::deque<AlertDescription> _waiting;
    std::vector<Shown> _shown; // the last one is in front and has the keyboard
};

} // namespace zul::ui
