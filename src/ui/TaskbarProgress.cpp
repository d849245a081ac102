// Sends the progress as a signal on the session bus; there is no reply. GUI thread; MainWindow calls it on each change
// of an update.
#include "ui/TaskbarProgress.h"

#include <QDBusMessage>
#include <QVariantMap>

namespace zul::ui {

void TaskbarProgress::show(bool isVisible, double progress) {
    const int percent = static_cast<int>(progress * 100);
    // Updates change several times a second; the desktop is notified of visible changes only.
    if (isVisible == _isVisible && (!isVisible || percent == _percent)) return;
    _isVisible = isVisible;
    _percent = percent;
    if (!_bus.isConnected()) return;
    QDBusMessage signal =
        QDBusMessage::createSignal("/com/zul/PrinterUtility", "com.canonical.Unity.LauncherEntry", "Update");
    signal << QString("application://zul-printer-utility.desktop")
           << QVariantMap{{"progress", progress}, {"progress-visible", isVisible}};
    _bus.send(signal);
}

} // namespace zul::ui
