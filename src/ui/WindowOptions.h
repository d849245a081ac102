// The command line of the window program. Main thread; main reads it once, before it starts anything.
#pragma once

#include "session/SessionOptions.h"

#include <optional>
#include <string>

namespace zul::ui {

/// The result of reading the command line: options, or why there are none.
struct ParsedWindowOptions {
    std::optional<SessionOptions> options;
    int exitStatus = 0;  // if options is nullopt: 0 after help or version, 2 for wrong usage
    std::string output;  // help or version, for standard output
    std::string problem; // what is wrong and what to do, for standard error
};

/// Reads the command line. Prints nothing.
ParsedWindowOptions parseWindowOptions(int argc, const char* const* argv);

} // namespace zul::ui
