// Keeps the machine from sleeping or shutting down while a printer is in an update, through the login service of the
// system. Where there is no such service nothing is kept and nothing is said. GUI thread.
#pragma once

#include <QDBusConnection>
#include <QDBusUnixFileDescriptor>
#include <QObject>
#include <optional>

namespace zul::ui {

class SleepInhibitor final : public QObject {
    Q_OBJECT

  public:
    /// bus: where the login service is; the system bus, but for tests.
    explicit SleepInhibitor(QDBusConnection bus = QDBusConnection::systemBus());

    /// Asks for the lock, or gives it back. Asking again while it is held does nothing. Never waits.
    void setInhibited(bool isInhibited);
    /// Whether or not there is a service that gives it.
    bool isWanted() const { return _isWanted; }
    bool isHeld() const { return _lock.has_value(); }

  Q_SIGNALS:
    void heldChanged();

  private:
    void ask();

    QDBusConnection _bus;
    bool _isWanted = false;
    std::optional<QDBusUnixFileDescriptor> _lock; // held as long as its descriptor is open; a crash gives it back too
};

} // namespace zul::ui
