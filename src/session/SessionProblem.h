// Why a run cannot start.
#pragma once

#include <string>

namespace zul {

struct SessionProblem {
    std::string message; // what is wrong, and what to do
    bool isWrongUsage = false;
};

} // namespace zul
