// The parsed command line. Read once on the main thread, before any queue runs.
#pragma once

#include "session/SessionOptions.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zul::cli {

struct Options : SessionOptions {
    std::string command; // "list", "info", …; "archive list" and the like include their second word
    std::vector<std::string> arguments;

    bool json = false;

    // update
    bool all = false;
    bool agree = false;
    bool yes = false;
    bool notNeededOk = false;
    bool reinstall = false;
    int stallTimeout = 0; // seconds; 0: the limit of each phase
    int giveUp = 900;     // seconds

    // history
    std::string printer;               // key, serial number or location; empty: all printers
    std::optional<std::int64_t> since; // milliseconds since 1970
    bool dismiss = false;              // dismiss the unsuccessful updates of this printer
};

struct ParsedOptions {
    std::optional<Options> options;
    int exitStatus = 0;  // without options: help was requested, or the usage was wrong
    std::string output;  // help text for standard output
    std::string problem; // what is wrong with the usage, and what to do
};

/// Main thread, before any queue runs. Options, or the exit status with the help or the problem.
ParsedOptions parseOptions(int argc, const char* const* argv);

} // namespace zul::cli
