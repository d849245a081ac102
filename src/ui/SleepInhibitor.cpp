#include "ui/SleepInhibitor.h"

#include "ui/Texts.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace zul::ui {

SleepInhibitor::SleepInhibitor(QDBusConnection bus) : _bus(std::move(bus)) {}

void SleepInhibitor::setInhibited(bool isInhibited) {
    if (_isWanted == isInhibited) return;
    _isWanted = isInhibited;
    if (_isWanted) {
        ask();
        return;
    }
    const bool wasHeld = _lock.has_value();
    _lock.reset();
    if (wasHeld) Q_EMIT heldChanged();
}

void SleepInhibitor::ask() {
    if (!_bus.isConnected()) return;
    QDBusMessage call = QDBusMessage::createMethodCall("org.freedesktop.login1", "/org/freedesktop/login1",
                                                       "org.freedesktop.login1.Manager", "Inhibit");
    call << QString("sleep:shutdown") << QString("ZUL Printer Utility")
         << localized(operatorText("The firmware of a printer is being updated")) << QString("block");
    auto* const watcher = new QDBusPendingCallWatcher(_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        const QDBusPendingReply<QDBusUnixFileDescriptor> reply = *watcher;
        watcher->deleteLater();
        if (reply.isError() || !_isWanted || _lock) return; // the update may have ended meanwhile
        _lock = reply.value();
        Q_EMIT heldChanged();
    });
}

} // namespace zul::ui
