// Reads the command line with CLI11. Called by main() before any queue runs.
// Wrong usage yields a problem text and an exit status; nothing is printed here.
#include "cli/Options.h"

#include "cli/ExitStatus.h"
#include "platform/foundation/LocalTime.h"
#include "session/SessionOptions.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <set>
#include <sstream>
#include <utility>

namespace zul::cli {

namespace {

const char* kFooter =
    "\nPRINTER is a key, a printer serial number, a USB location or a position in the list.\n"
    "Exit status: 0 done, 1 failed, 2 wrong usage, 3 update not needed, 4 no such printer, 5 busy,\n"
    "6 not ready, 7 damaged or missing firmware files, 8 did not come back or answer, 130 interrupted.\n"
    "With several printers it is that of the first one, in the order of the list, that failed.";

constexpr int kLongestWait = 86400; // seconds: one day

void addGlobalOptions(CLI::App& app, Options& options) {
    addSessionOptions(app, options);
    app.add_flag("--json", options.json, "Machine-readable output; nothing prompts");
    app.set_version_flag("--version", "zulctl " ZUL_VERSION);
}

CLI::App* addCommand(CLI::App& app, Options& options, const char* name, const char* help) {
    CLI::App* command = app.add_subcommand(name, help);
    // The callback of a subcommand runs before that of its parent, so the names are joined from the end.
    command->final_callback([&options, name] {
        options.command = options.command.empty() ? name : std::string(name) + ' ' + options.command;
    });
    return command;
}

void addPrinterCommands(CLI::App& app, Options& options) {
    addCommand(app, options, "list", "The attached printers");
    auto optionalPrinter = [&](const char* name, const char* help) {
        addCommand(app, options, name, help)->add_option("PRINTER", options.arguments, "Which printer")->expected(0, 1);
    };
    optionalPrinter("info", "Everything that is known about a printer");
    optionalPrinter("status", "Ask a printer for its status now");
    addCommand(app, options, "watch", "Arrivals, departures and every changed value, until interrupted");
    auto onePrinter = [&](const char* name, const char* help) {
        addCommand(app, options, name, help)
            ->add_option("PRINTER", options.arguments, "Which printer")
            ->required()
            ->expected(1);
    };
    onePrinter("soft-reset", "Printer-class soft reset");
    onePrinter("reset", "Reset the USB device");
    onePrinter("reenumerate", "Make the USB device leave and return");
    auto twoWords = [&](const char* name, const char* help, const char* first, std::set<std::string> choices) {
        CLI::App* command = addCommand(app, options, name, help);
        command
            ->add_option_function<std::string>(
                first,
                [&options](const std::string& word) { options.arguments.insert(options.arguments.begin(), word); },
                "What")
            ->required()
            ->check(CLI::IsMember(std::move(choices)));
        command
            ->add_option_function<std::string>(
                "PRINTER", [&options](const std::string& word) { options.arguments.push_back(word); }, "Which printer")
            ->required();
    };
    twoWords("reset-counter", "Set a counter to 0", "COUNTER", {"A", "B", "M"});
    twoWords("usb-serial", "Turn the printer's USB serial number on or off", "SETTING", {"on", "off"});
}

void addUpdateCommand(CLI::App& app, Options& options) {
    const CLI::Range kSeconds(1, kLongestWait);
    CLI::App* update = addCommand(app, options, "update", "Update firmware and color tables");
    update->add_option("PRINTER", options.arguments, "Which printers");
    update->add_flag("--all", options.all, "All attached printers");
    update->add_flag("--agree", options.agree, "Tick \"I Agree\"");
    update->add_flag("--yes", options.yes, "Confirm the update");
    update->add_flag("--not-needed-ok", options.notNeededOk, "Exit with 0 when the installed version is newer");
    update->add_flag("--reinstall", options.reinstall, "Update a printer that is up to date, too");
    update
        ->add_option("--stall-timeout", options.stallTimeout,
                     "Seconds without progress before advice is given (default: the longest time of each step)")
        ->check(kSeconds);
    update->add_option("--give-up", options.giveUp, "Seconds without progress before it ends")
        ->check(kSeconds)
        ->capture_default_str();
}

std::int64_t wallTimeNow() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

void addHistoryCommand(CLI::App& app, Options& options) {
    CLI::App* history = addCommand(app, options, "history", "Past updates, the newest last");
    history->add_option("--printer", options.printer, "Only of this printer: key, serial number or USB location")
        ->type_name("PRINTER");
    history
        ->add_option_function<std::string>(
            "--since",
            [&options](const std::string& text) {
                options.since = momentFromText(text, wallTimeNow());
                if (!options.since) throw CLI::ValidationError("--since", text + " is not a time");
            },
            "Only begun since then: 2026-11-01, 2026-11-01T10:00, or how long ago: 12h, 7d")
        ->type_name("TIME");
    history
        ->add_flag("--dismiss", options.dismiss,
                   "Stop offering to complete the updates of --printer, for example because it will not return")
        ->needs("--printer");
}

void addOfflineCommands(CLI::App& app, Options& options) {
    CLI::App* archive = addCommand(app, options, "archive", "The firmware archive");
    archive->require_subcommand(1);
    for (const auto& [name, help] : {std::pair{"list", "The files of each model, found or missing"},
                                     std::pair{"verify", "The same, checked against the digests"},
                                     std::pair{"digest", "Write the digest file for a folder of vendor files"},
                                     std::pair{"path", "The folder in use"}}) {
        addCommand(*archive, options, name, help)->add_option("DIR", options.arguments, "Folder")->expected(0, 1);
    }
    CLI::App* srecord = addCommand(app, options, "srecord", "Motorola S-record files");
    srecord->require_subcommand(1);
    addCommand(*srecord, options, "verify", "Check files; says which line is bad and why")
        ->add_option("FILE", options.arguments, "Files")
        ->required();
    CLI::App* defaults = addCommand(app, options, "defaults", "Settings");
    defaults->require_subcommand(1);
    addCommand(*defaults, options, "read", "One setting, or all")
        ->add_option("KEY", options.arguments, "Key")
        ->expected(0, 1);
    addCommand(*defaults, options, "write", "Change a setting")
        ->add_option("KEY VALUE", options.arguments, "Key and value")
        ->required()
        ->expected(2);
    addCommand(*defaults, options, "delete", "Forget a setting")
        ->add_option("KEY", options.arguments, "Key")
        ->required()
        ->expected(1);
    addCommand(app, options, "doctor", "What keeps printers from being used or updated, and the commands that fix it");
    addCommand(app, options, "hostinfo", "The machine that this runs on");
}

} // namespace

ParsedOptions parseOptions(int argc, const char* const* argv) {
    Options options;
    CLI::App app{"Keeps ZUL photo printers up to date.", "zulctl"};
    app.footer(kFooter);
    app.fallthrough();
    app.require_subcommand(0, 1);
    addGlobalOptions(app, options);
    addPrinterCommands(app, options);
    addUpdateCommand(app, options);
    addHistoryCommand(app, options);
    addOfflineCommands(app, options);
    ParsedOptions parsed;
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) { // help or version was requested
        std::ostringstream output;
        app.exit(success, output, output);
        parsed.output = output.str();
        return parsed;
    } catch (const CLI::ParseError& error) {
        parsed.exitStatus = kWrongUsage;
        const auto words = app.get_subcommands();
        parsed.problem = std::string(error.what()) + ". Try zulctl " +
                         (words.empty() ? "" : words.front()->get_name() + " ") + "--help.";
        return parsed;
    }
    if (options.command.empty() && !options.asksForVirtualHelp()) {
        parsed.exitStatus = kWrongUsage;
        parsed.problem = "Name a command, for example: zulctl list. Try zulctl --help.";
        return parsed;
    }
    parsed.problem = options.problem("zulctl");
    if (!parsed.problem.empty()) {
        parsed.exitStatus = kWrongUsage;
        return parsed;
    }
    parsed.options = std::move(options);
    return parsed;
}

} // namespace zul::cli
