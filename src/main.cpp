// The window program: hands its arguments to the application loop and returns what that returns.
#include "AppDelegate.h"
#include "platform/foundation/StateFolder.h"
#include "ui/Catalogue.h"
#include "ui/EndSignals.h"
#include "ui/FocusStyle.h"
#include "ui/Pictures.h"
#include "ui/WindowOptions.h"
#include "ui/WindowProgram.h"
#include "virtual_printer/VirtualPrinterSettings.h"

#include <QApplication>
#include <QMessageBox>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <unistd.h>

namespace {

constexpr int kFailed = 1;

// Printers' queues may be in the middle of a transfer: nobody waits for them, and nothing that they use is taken down.
[[noreturn]] void leave(int status) {
    std::cout << std::flush;
    std::cerr << std::flush;
    std::fflush(nullptr);
    _exit(status);
}

// The toolkit would end with an abort.
bool hasDisplay() {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
        if (const char* value = std::getenv(name); value != nullptr && *value != 0) return true;
    }
    return false;
}

// The log window shows what the log facility writes, so there is always a file that it writes to.
std::string standardLogFile() {
    const std::filesystem::path folder = zul::stateFolder();
    return folder.empty() || zul::createStateFolder(folder) ? "" : (folder / "log.txt").string();
}

void openLog(const zul::SessionOptions& options) {
    if (const auto problem = zul::openLogs(options, "ZUL Printer Utility")) {
        std::cerr << "zul-printer-utility: " << problem->message << '\n';
        if (!options.logFile.empty()) leave(kFailed);
    }
}

int run(QApplication& application, const zul::SessionOptions& options) {
    // Kept until the process is gone: queues may still use it.
    auto* const program = new zul::ui::WindowProgram(options, [] { QCoreApplication::exit(0); });
    zul::AppDelegate delegate;
    delegate.window = &program->window();
    if (const auto problem = program->start()) {
        std::cerr << "zul-printer-utility: " << problem->message << '\n';
        if (problem->isWrongUsage) return 2;
        // Who starts the program from a menu sees no terminal.
        QMessageBox::critical(nullptr, QApplication::applicationName(), QString::fromStdString(problem->message));
        return kFailed;
    }
    delegate.applicationDidFinishLaunching();
    const zul::ui::EndSignals signals([program] { program->window().close(); });
    const int status = application.exec();
    program->session().mainQueue.close(); // whoever waits for it is told that it has ended
    program->session().endBus();
    return status;
}

} // namespace

int main(int argc, char** argv) {
    auto parsed = zul::ui::parseWindowOptions(argc, argv);
    if (!parsed.options) {
        std::cout << parsed.output;
        if (!parsed.problem.empty()) std::cerr << "zul-printer-utility: " << parsed.problem << '\n';
        leave(parsed.exitStatus);
    }
    if (parsed.options->asksForVirtualHelp()) {
        std::cout << zul::virtualPrinterHelp();
        leave(0);
    }
    if (!hasDisplay()) {
        std::cerr << "zul-printer-utility: there is no display here. Use zulctl on machines without one.\n";
        leave(kFailed);
    }
    if (parsed.options->logFile.empty()) parsed.options->logFile = standardLogFile();
    openLog(*parsed.options);
    QApplication::setDesktopFileName("zul-printer-utility");
    auto* const application = new QApplication(argc, argv); // not taken down either
    QApplication::setStyle(new zul::ui::FocusStyle);
    QApplication::setApplicationName("ZUL Printer Utility");
    QApplication::setQuitOnLastWindowClosed(false); // the controller decides
    zul::ui::useCatalogues(zul::Bundle::mainBundle().resourcesFolder().parent_path() / "locale");
    zul::ui::translateToolkit();
    leave(run(*application, *parsed.options));
}
