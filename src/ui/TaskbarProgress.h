// Shows the progress of updates on the program's entry in the task bar, on desktops that support it. GUI thread;
// MainWindow owns it.
#pragma once

#include <QDBusConnection>
#include <utility>

namespace zul::ui {

class TaskbarProgress {
  public:
    /// bus: where desktops listen.
    explicit TaskbarProgress(QDBusConnection bus = QDBusConnection::sessionBus()) : _bus(std::move(bus)) {}
    /// Shows or hides the progress bar. progress: 0 to 1; only changes of whole per cents are sent to the desktop.
    void show(bool isVisible, double progress);

  private:
    QDBusConnection _bus;
    bool _isVisible = false;
    int _percent = -1;
};

} // namespace zul::ui
