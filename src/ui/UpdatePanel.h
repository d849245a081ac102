// The updates of all printers, one card each, newest state. Not to be seen while there is none. GUI thread.
#pragma once

#include "ui/UpdateCard.h"

#include <QScrollArea>
#include <map>
#include <string>

class QVBoxLayout;

namespace zul::ui {

class UpdatePanel final : public QScrollArea {
    Q_OBJECT

  public:
    explicit UpdatePanel(QWidget* parent = nullptr);
    void follow(UpdateSupervisor& supervisor);

    /// What all cards need, at the width that there is.
    int wantedHeight() const;

    /// Shows the updates as they are now.
    void showUpdates();

  Q_SIGNALS:
    /// There is more to be seen than before, or less: another update, or what to do about one.
    void roomChanged();

  private:
    QWidget* lastControl();

    UpdateSupervisor* _supervisor = nullptr;
    QVBoxLayout* _cards;
    std::map<std::string, UpdateCard*> _cardOfKey;
    int _wanted = 0;
};

} // namespace zul::ui
