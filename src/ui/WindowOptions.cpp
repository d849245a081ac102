// Defines and checks the options of the window program, most of which it shares with zulctl. Main thread; main calls
// it.
#include "ui/WindowOptions.h"

#include "session/SessionOptions.h"

#include <CLI/CLI.hpp>
#include <sstream>
#include <utility>

namespace zul::ui {

namespace {

constexpr int kWrongUsage = 2;
constexpr const char* kName = "zul-printer-utility";

} // namespace

ParsedWindowOptions parseWindowOptions(int argc, const char* const* argv) {
    SessionOptions options;
    CLI::App app{"The window of the ZUL Printer Utility. zulctl does the same on the command line.", kName};
    addSessionOptions(app, options);
    app.set_version_flag("--version", std::string(kName) + " " ZUL_VERSION);
    ParsedWindowOptions parsed;
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) { // help or version
        std::ostringstream output;
        app.exit(success, output, output);
        parsed.output = output.str();
        return parsed;
    } catch (const CLI::ParseError& error) {
        parsed.exitStatus = kWrongUsage;
        parsed.problem = std::string(error.what()) + ". Try " + kName + " --help.";
        return parsed;
    }
    parsed.problem = options.problem(kName);
    if (!parsed.problem.empty()) {
        parsed.exitStatus = kWrongUsage;
        return parsed;
    }
    parsed.options = std::move(options);
    return parsed;
}

} // namespace zul::ui
