// What both command lines say about printers, archive and log. Read once, before anything
// starts.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace zul {

struct SessionOptions {
    std::vector<std::string> virtualPrinters;
    std::string firmwareArchive;
    std::set<std::uint16_t> admittedProducts;
    std::string logFile;
    std::string journalFile;
    bool verbose = false;

    /// Help about virtual printers was asked for in place of a printer.
    bool asksForVirtualHelp() const;
    /// What is wrong with the options together, and what to do; empty when nothing is. program: whose help to read.
    std::string problem(const std::string& program) const;
};

/// Adds the options to the command line's reader; they are stored in options when it parses. Main thread.
void addSessionOptions(CLI::App& app, SessionOptions& options);

} // namespace zul
