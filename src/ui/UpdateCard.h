// One update on the screen: its steps with the current one marked, a progress bar, the time, the last sign of life, and
// advice when it stalls; in the end its result, until the operator closes it. GUI thread; UpdatePanel owns it.
#pragma once

#include "platform/dispatch/Clock.h"
#include "update/Update.h"
#include "update/UpdatePhase.h"

#include <QFrame>
#include <array>
#include <cstddef>

class QBoxLayout;
class QLabel;
class QProgressBar;
class QToolButton;

namespace zul::ui {

class UpdateCard final : public QFrame {
    Q_OBJECT

  public:
    /// Empty and not shown until show is called.
    explicit UpdateCard(QWidget* parent = nullptr);
    /// Shows the update as it is at this time of the supervisor's clock.
    void show(const Update& update, Clock::TimePoint now);
    /// The button that closes the card; UpdatePanel sets its place in the tab order.
    QWidget& closeButton() const;

  Q_SIGNALS:
    /// The operator has pressed the close button; the card is still shown.
    void closed();

  protected:
    bool event(QEvent* event) override;

  private:
    static constexpr std::size_t kSteps = kUpdateSteps;
    void makeSteps(QBoxLayout& layout);
    void showSteps(const Update& update);
    void showProgress(const Update& update);
    void showTimes(const Update& update, Clock::TimePoint now);
    void showResult(const Update& update);
    void showPicture();

    QString _pictureName;
    QLabel* _picture;
    QLabel* _title;
    QLabel* _versions;
    std::array<QLabel*, kSteps> _steps{};
    QProgressBar* _bar;
    QLabel* _stateLine;
    QLabel* _times;
    QLabel* _advice;
    QToolButton* _close;
};

} // namespace zul::ui
