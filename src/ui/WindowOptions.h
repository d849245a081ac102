// The command line of the window. Read once, before anything starts.
#pragma once

#include "session/SessionOptions.h"

#include <optional>
#include <string>

namespace zul::ui {

struct ParsedWindowOptions {
    std::optional<SessionOptions> options;
    int exitStatus = 0;  // when there are none: help was asked for (0), or the usage was wrong (2)
    std::string output;  // help, for standard output
    std::string problem; // what is wrong, and what to do
};

ParsedWindowOptions parseWindowOptions(int argc, const char* const* argv);

} // namespace zul::ui
