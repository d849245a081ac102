// Entry point of zulctl, the command line for ZUL printers.
// Parses the options, runs one command on the main thread and leaves with its exit status.
#include "cli/Commands.h"
#include "cli/ExitStatus.h"
#include "cli/Options.h"
#include "cli/Program.h"
#include "cli/StandardStream.h"
#include "platform/dispatch/Signals.h"
#include "platform/foundation/StandardStreams.h"
#include "session/Logs.h"
#include "virtual_printer/VirtualPrinterSettings.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <string>
#include <unistd.h>

namespace zul::cli {

namespace {

// Does not wait for queues that may be blocked in a transfer, and destroys nothing that they use.
[[noreturn]] void leave(int status, const Output& output) {
    const int reported = output.finish(status);
    // The buffers of the C library are empty: all text goes through the two StandardStreams.
    _exit(reported);
}

bool wantsJson(int argc, char** argv) {
    // Before the options are parsed: wrong usage has to be reported in the right form, too.
    return std::any_of(argv, argv + argc, [](const char* word) { return std::strcmp(word, "--json") == 0; });
}

using PrinterCommand = void (*)(Program&);

const std::map<std::string, PrinterCommand>& printerCommands() {
    static const std::map<std::string, PrinterCommand> commands = {
        {"list", runList},        {"info", runInfo},
        {"status", runStatus},    {"watch", runWatch},
        {"update", runUpdate},    {"reset-counter", runResetCounter},
        {"soft-reset", runReset}, {"usb-serial", runUSBSerial},
        {"reset", runReset},      {"reenumerate", runReset},
        {"doctor", runDoctor},
    };
    return commands;
}

int runOffline(const Options& options, const Output& output, bool& isOffline) {
    isOffline = true;
    if (options.command.starts_with("archive ")) return runArchive(options, output);
    if (options.command.starts_with("srecord ")) return runSRecord(options, output);
    if (options.command.starts_with("defaults ")) return runDefaults(options, output);
    if (options.command == "hostinfo") return runHostInfo(output);
    if (options.command == "history") return runHistory(options, output);
    isOffline = false;
    return kDone;
}

int runWithPrinters(const Options& options) {
    static Program* program = nullptr; // kept: queues may use it until the process ends
    program = new Program(options);
    const PrinterCommand command = printerCommands().at(options.command);
    if (const int status = program->start([command] { command(*program); }); status != kDone) return status;
    const int status = program->run();
    static_cast<void>(program->session.controller->applicationShouldTerminate());
    program->session.endBus();
    return status;
}

int run(int argc, char** argv) {
    ignoreBrokenPipes();
    const ParsedOptions parsed = parseOptions(argc, argv);
    if (!parsed.options) {
        std::cout << parsed.output;
        if (!parsed.problem.empty()) Output(wantsJson(argc, argv)).problem(parsed.problem, parsed.exitStatus);
        return parsed.exitStatus;
    }
    const Options& options = *parsed.options;
    const Output output(options.json);
    if (options.asksForVirtualHelp()) {
        std::cout << virtualPrinterHelp();
        return kDone;
    }
    if (const auto problem = openLogs(options, "zulctl")) {
        output.problem(problem->message, kFailed);
        return kFailed;
    }
    bool isOffline = false;
    const int status = runOffline(options, output, isOffline);
    return isOffline ? status : runWithPrinters(options);
}

} // namespace

} // namespace zul::cli

int main(int argc, char** argv) {
    zul::occupyStandardStreams();
    zul::cli::StandardStream::output(); // install both buffers; all text goes through them
    zul::cli::StandardStream::error();
    const int status = zul::cli::run(argc, argv);
    zul::cli::leave(status, zul::cli::Output(zul::cli::wantsJson(argc, argv)));
}
