// The window's tests: real widgets on a real display, embedded printers on the real clock.
#define DOCTEST_CONFIG_IMPLEMENT
#include "holven_log/HOLVEN_Log.h"
#include "platform/foundation/SystemLog.h"
#include "support/TemporaryFolder.h"
#include "ui/FocusStyle.h"

#include <QApplication>
#include <doctest/doctest.h>
#include <unistd.h>

int main(int argc, char** argv) {
    // Nothing of the user's is read or written.
    auto* const home = new zul::TemporaryFolder;
    qputenv("HOME", home->path.c_str());
    qputenv("XDG_CONFIG_HOME", home->path.c_str());
    qputenv("XDG_STATE_HOME", home->path.c_str()); // root's would be the machine's
    qputenv("LC_ALL", "C.UTF-8");                  // a locale in which the language can be chosen
    zul::setStandardErrorSink([](const std::string&) {});
    zul::HOLVEN_Log::setShouldLogToStdErr(false);
    doctest::Context context(argc, argv);
    auto* const application = new QApplication(argc, argv);
    QApplication::setStyle(new zul::ui::FocusStyle);
    QApplication::setApplicationName("ZUL Printer Utility");
    QApplication::setQuitOnLastWindowClosed(false);
    static_cast<void>(application);
    const int status = context.run();
    delete home;
    _exit(status); // as the program itself: nothing that queues may use is taken down
}
