// The box of one alert on the screen: its title bar, picture, texts, check box and buttons. GUI thread, which is the
// main queue's. AlertPresenter makes the boxes and decides when each is shown.
#pragma once

#include "Classes/Outlets.h"
#include "platform/dispatch/Queue.h"

#include <QMessageBox>
#include <QString>
#include <memory>
#include <vector>

class QAbstractButton;
class QLabel;

namespace zul::ui {

/// A box without the desktop's frame: every alert is answered by one of its buttons, and some desktops put a close
/// button into each frame even where they are asked not to. Its own title bar names the printer, as several may be
/// updated at once.
class AlertBox final : public QMessageBox {
    Q_OBJECT

  public:
    /// Builds the box on this window without showing it, and calls alert.layout once the buttons exist. mainQueue:
    /// where changes of an observed object are handled; must outlive the box.
    AlertBox(const AlertDescription& alert, QWidget& window, MainQueue& mainQueue);

    /// Draws again what depends on the window's colours and on the resolution of its screen.
    void showLook();
    /// kAlertFirstButton plus the index of the pressed button; the first button when the box ended without one.
    int answer() const;

  Q_SIGNALS:
    /// The operator pressed the keys that end the program.
    void quitAsked();

  protected:
    void resizeEvent(QResizeEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

  private:
    void addTitleBar(const QString& title);
    void styleTexts();
    void addButtons(const AlertDescription& alert, MainQueue& mainQueue);
    void addCheckBox(const std::shared_ptr<CheckBox>& accessory);

    QWidget& _window;
    const QString _iconName;
    const AlertStyle _style;
    QLabel* _title = nullptr;
    std::vector<QAbstractButton*> _buttons; // in the order of the description
};

} // namespace zul::ui
