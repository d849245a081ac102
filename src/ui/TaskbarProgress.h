// Shows the progress of updates on the program's entry in the task bar, on desktops that listen for it. GUI thread.
#pragma once

#include <QDBusConnection>

namespace zul::ui {

class TaskbarProgress {
  public:
    explicit TaskbarProgress(QDBusConnection bus = QDBusConnection::sessionBus()) : _bus(std::move(bus)) {}
    /// progress: 0 to 1. Reports to the desktop only changes of a per cent or more.
    void show(bool isVisible, double progress);

  private:
    QDBusConnection _bus;
    bool _isVisible = false;
    int _percent = -1;
};

} // namespace zul::ui
