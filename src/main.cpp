// The window program: what has to be done before the toolkit is there, and then the application, whose result it
// returns.
#include "AppDelegate.h"
#include "platform/dispatch/Signals.h"
#include "platform/files/Folders.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/foundation/StandardStreams.h"
#include "session/Logs.h"
#include "session/SessionOptions.h"
#include "ui/Catalogue.h"
#include "ui/FocusStyle.h"
#include "ui/WindowOptions.h"
#include "ui/WindowProgram.h"
#include "update/UpdateSupervisor.h"
#include "update/UpdateTexts.h"
#include "update/UpdateVerdict.h"
#include "virtual_printer/VirtualPrinterSettings.h"

#include <QApplication>
#include <QMessageBox>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>

namespace {

constexpr int kFailed = 1;
constexpr const char* kName = "zul-printer-utility";
constexpr const char* kLogName = "ZUL Printer Utility";

// Ends the process without joining the printers' queues, which may be in a transfer, and without destroying what they
// use.
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

// A log that was named has to be there; without the usual one the window does its work as well.
bool openLog(zul::SessionOptions options) {
    const bool isNamed = !options.logFile.empty();
    if (!isNamed) options.logFile = standardLogFile();
    const auto problem = zul::openLogs(options, kLogName);
    if (problem) std::cerr << kName << ": " << problem->message << '\n';
    if (isNamed) return !problem;
    if (problem || options.logFile.empty()) {
        std::cerr << kName << ": the log is kept in the log window only.\n";
        options.logFile = "/dev/null"; // what is written nowhere is not shown either
        (void)zul::openLogs(options, kLogName);
    }
    return true;
}

// What the process is started with, when the application may begin.
struct Start {
    std::optional<zul::SessionOptions> options;
    int exitStatus = 0; // when it may not
};

// All that happens before the application. Each of it would be too late in there, or would need a display to be said.
Start prepare(int argc, char** argv) {
    zul::occupyStandardStreams(); // before anything is opened
    zul::ignoreBrokenPipes();
    auto parsed = zul::ui::parseWindowOptions(argc, argv);
    if (!parsed.options) {
        std::cout << parsed.output;
        if (!parsed.problem.empty()) std::cerr << kName << ": " << parsed.problem << '\n';
        return {std::nullopt, parsed.exitStatus};
    }
    if (parsed.options->asksForVirtualHelp()) {
        std::cout << zul::virtualPrinterHelp();
        return {std::nullopt, 0};
    }
    if (!hasDisplay()) {
        std::cerr << kName << ": there is no display here. Use zulctl on machines without one.\n";
        return {std::nullopt, kFailed};
    }
    if (!openLog(*parsed.options)) return {std::nullopt, kFailed};
    return {std::move(parsed.options)};
}

QApplication& makeApplication(int& argc, char** argv) {
    QApplication::setDesktopFileName(kName);
    auto* const application = new QApplication(argc, argv); // never taken down: queues may still post to it
    QApplication::setStyle(new zul::ui::FocusStyle);
    QApplication::setApplicationName("ZUL Printer Utility");
    QApplication::setQuitOnLastWindowClosed(false); // the controller decides
    zul::ui::useCatalogues(zul::Bundle::mainBundle().resourcesFolder().parent_path() / "locale");
    zul::ui::translateToolkit();
    return *application;
}

// The window is closed and cannot show any more what to do about a printer whose update is not complete. A terminal, or
// the log of the login session, can.
void reportIncomplete(const zul::UpdateSupervisor& supervisor) {
    for (const auto& [key, update] : supervisor.updates()) {
        const bool isOpen = update.isOpen();
        const bool isChanged = isOpen ? update.state.mayBeOrdered() : !update.verdict.isUntouched();
        if (!isChanged || update.verdict.isSuccess()) continue;
        const auto result = isOpen ? zul::UpdateResult::stopped : update.verdict.result;
        const std::string reason =
            isOpen ? zul::reasonFor(result, update.state, update.expectation) : update.verdict.reason;
        const std::string advice = isOpen ? zul::adviceAfter(result, update.state) : update.advice;
        std::cerr << update.name << ": " << zul::localizedFormat("The update is not complete: %s.", reason) << ' '
                  << advice << '\n';
    }
}

// The window with its printers, and its loop.
int applicationMain(int argc, char** argv, const zul::SessionOptions& options) {
    QApplication& application = makeApplication(argc, argv);
    // Kept until the process is gone: queues may still use it.
    auto* const program = new zul::ui::WindowProgram(options, [] { QCoreApplication::exit(0); });
    zul::AppDelegate delegate;
    delegate.window = &program->window();
    if (const auto problem = program->start()) {
        std::cerr << kName << ": " << problem->message << '\n';
        if (problem->isWrongUsage) return 2;
        // A user who starts the program from a menu sees no terminal.
        QMessageBox::critical(nullptr, QApplication::applicationName(), QString::fromStdString(problem->message));
        return kFailed;
    }
    delegate.applicationDidFinishLaunching();
    const zul::Signals signals(program->session().mainQueue, {SIGINT, SIGTERM, SIGHUP}, [program](int signal) {
        // A terminal that was closed is no reason to leave a printer in the middle of its update.
        if (signal == SIGHUP && program->session().supervisor.isAnyBetweenCommands()) return;
        program->window().endAsked();
    });
    const int status = application.exec();
    reportIncomplete(program->session().supervisor);
    program->session().mainQueue.close(); // threads that wait for it are released
    program->session().endBus();
    return status;
}

} // namespace

int main(int argc, char** argv) {
    const Start start = prepare(argc, argv);
    leave(start.options ? applicationMain(argc, argv, *start.options) : start.exitStatus);
}
