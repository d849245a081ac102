// The options that both programs share: printers, archive and log. Read once, before anything starts.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace zul {

/// Empty texts: the option was not given.
struct SessionOptions {
    std::vector<std::string> virtualPrinters;
    std::string firmwareArchive;
    std::set<std::uint16_t> admittedProducts;
    std::string logFile;
    std::string journalFile;
    bool verbose = false;

    /// True if help about virtual printers was requested instead of a printer.
    bool asksForVirtualHelp() const;
    /// The problem of the combined options, and what to do; empty if there is none. program: whose help the text names.
    std::string problem(const std::string& program) const;
};

/// Adds the options to the parser, which stores them in options when it parses. Main thread.
void addSessionOptions(CLI::App& app, SessionOptions& options);

} // namespace zul
