// Shows the engine's alerts: sheets on the main window, one at a time in the order in which they were raised, and the
// application-modal ones at once. GUI thread.
#pragma once

#include "Classes/Outlets.h"
#include "platform/dispatch/Queue.h"

#include <QObject>
#include <QPointer>
#include <QWidget>
#include <deque>
#include <functional>
#include <string>
#include <vector>

class QMessageBox;

namespace zul::ui {

class AlertPresenter final : public QObject, public AlertOutlet {
    Q_OBJECT

  public:
    AlertPresenter() = default;
    /// Alerts wait until there is a window to carry them.
    void setWindow(QWidget* window, MainQueue& mainQueue);

    void beginAlert(AlertDescription alert) override;

    /// Takes all alerts away without an answer, and lets go of what they hold.
    void dismissAll();

  Q_SIGNALS:
    /// The operator wants to end the program, although an alert is shown.
    void quitAsked();

  protected:
    bool eventFilter(QObject* object, QEvent* event) override;

  private:
    class Layout;
    struct Standing {
        QMessageBox* box;
        AlertDescription alert;
    };
    void showNext();
    QMessageBox* makeBox(const AlertDescription& alert);
    void showLook(QMessageBox& box, const AlertDescription& alert);
    void addButtons(QMessageBox& box, const AlertDescription& alert);
    void addCheckBox(QMessageBox& box, const AlertDescription& alert);
    void show(AlertDescription alert);
    void finish(QMessageBox* box);

    QPointer<QWidget> _window;
    MainQueue* _mainQueue = nullptr;
    std::deque<AlertDescription> _waiting;
    std::vector<Standing> _standing; // the last one is in front and has the keyboard
};

} // namespace zul::ui
