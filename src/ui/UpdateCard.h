// One update on the screen: its steps with the current one marked, a progress bar, the time, the last sign of life, and
// what to do when it stalls. Stays with its result until it is closed. GUI thread.
#pragma once

#include "update/UpdateSupervisor.h"

#include <QFrame>
#include <array>

class QBoxLayout;
class QLabel;
class QProgressBar;
class QToolButton;

namespace zul::ui {

class UpdateCard final : public QFrame {
    Q_OBJECT

  public:
    explicit UpdateCard(QWidget* parent = nullptr);
    void show(const Update& update, Clock::TimePoint now);
    /// For the order of the tab key.
    QWidget& closeButton() const;

  Q_SIGNALS:
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
