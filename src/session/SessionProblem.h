// Why a run cannot start.
#pragma once

#include <string>

namespace zul {

/// Shown to the user before the program ends with an exit status.
struct SessionProblem {
    std::string message; // what is wrong, and what to do
    bool isWrongUsage = false;
    std::string code = {}; // the name of the return code, for JSON; empty if there is none
};

} // namespace zul
