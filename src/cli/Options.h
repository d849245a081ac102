// The command line as data. No queue: read once, before anything starts.
#pragma once

#include "session/SessionOptions.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zul::cli {

struct Options : SessionOptions {
    std::string command; // "list", "info", … ; "archive list" and the like with their second word
    std::vector<std::string> arguments;

    bool json = false;

    // update
    bool all = false;
    bool agree = false;
    bool yes = false;
    bool notNeededOk = false;
    bool reinstall = false;
    int stallTimeout = 0; // seconds; 0: the longest time of each phase
    int giveUp = 900;     // seconds

    // history
    std::string printer;               // key, serial number or place; empty: all
    std::optional<std::int64_t> since; // milliseconds since 1970
    bool dismiss = false;              // close the updates without success of this printer
};

struct ParsedOptions {
    std::optional<Options> options;
    int exitStatus = 0;  // when there are none: help was asked for, or the usage was wrong
    std::string output;  // help, for standard output
    std::string problem; // what is wrong, and what to do
};

ParsedOptions parseOptions(int argc, const char* const* argv);

} // namespace zul::cli
