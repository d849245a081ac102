// The updates of all printers, one card each. Hidden while there are none. GUI thread; a part of the main window.
#pragma once

#include "ui/UpdateCard.h"
#include "update/UpdateSupervisor.h"

#include <QScrollArea>
#include <map>
#include <string>

class QVBoxLayout;

namespace zul::ui {

class UpdatePanel final : public QScrollArea {
    Q_OBJECT

  public:
    /// Empty and hidden until follow and showUpdates are called.
    explicit UpdatePanel(QWidget* parent = nullptr);
    /// Sets the supervisor whose updates are shown; it must outlive the panel.
    void follow(UpdateSupervisor& supervisor);

    /// The height in pixels that all cards need at the present width.
    int wantedHeight() const;

    /// Shows the updates as they are now, except those that the operator has dismissed.
    void showUpdates();

  Q_SIGNALS:
    /// wantedHeight() has changed: an update was added or removed, or an advice.
    void roomChanged();

  private:
    QWidget* lastControl();

    UpdateSupervisor* _supervisor = nullptr;
    QVBoxLayout* _cards;
    std::map<std::string, UpdateCard*> _cardOfKey;
    int _wanted = 0;
};

} // namespace zul::ui
