// The main program of the window's tests: real widgets on a real display, embedded printers on the real clock.
#define DOCTEST_CONFIG_IMPLEMENT
#include "holven_log/HOLVEN_Log.h"
#include "platform/foundation/SystemLog.h"
#include "support/TemporaryFolder.h"
#include "ui/FocusStyle.h"

#include <QApplication>
#include <doctest/doctest.h>
#include <unistd.h>

int main(int argc, char** argv) {
    // The tests neither read nor write the user's files.
    auto* const home = new zul::TemporaryFolder;
    qputenv("HOME", home->path.c_str());
    qputenv("XDG_CONFIG_HOME", home->path.c_str());
    qputenv("XDG_STATE_HOME", home->path.c_str()); // otherwise root would use the machine's folder
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
    _exit(status); // as the program itself: objects that queues may still use are not destroyed
}
