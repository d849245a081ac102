// Converts the texts of --virtual into printers on the embedded bus.
// Called by the session on the main queue, before it starts.
#include "session/EmbeddedPrinters.h"

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/LocalizedFormat.h"
#include "session/SessionOptions.h"
#include "session/SessionProblem.h"
#include "virtual_printer/VirtualBus.h"
#include "virtual_printer/VirtualJournal.h"
#include "virtual_printer/VirtualPrinterSettings.h"

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace zul {

namespace {

using Locations = std::set<VirtualBus::Location>;

// Explicit locations are taken first; the other printers get the free ones.
std::optional<SessionProblem> parsePrinters(const SessionOptions& options, Locations& taken,
                                            std::vector<VirtualPrinterSettings>& printers) {
    for (const std::string& text : options.virtualPrinters) {
        auto parse = parseVirtualPrinter(text);
        if (!parse.settings) return SessionProblem{"--virtual " + text + ": " + parse.problem + ".", true};
        // Gives each printer a serial number of its own, unless one was given.
        if (text.find(",serial=") == std::string::npos) {
            parse.settings->serial = formatted("%06d", static_cast<int>(printers.size()) + 1);
        }
        if (parse.settings->location && !taken.insert(*parse.settings->location).second) {
            return SessionProblem{"--virtual " + text + ": another printer is at that location already.", true};
        }
        printers.push_back(*parse.settings);
    }
    return std::nullopt;
}

} // namespace

std::optional<SessionProblem> makeEmbeddedPrinters(const SessionOptions& options, MainQueue& mainQueue, Clock& clock,
                                                   std::unique_ptr<VirtualBus>& bus) {
    auto journal = std::make_shared<VirtualJournal>(clock);
    // Before the printers: a test that names a journal must not run without it.
    if (!options.journalFile.empty() && !journal->writeTo(options.journalFile)) {
        return SessionProblem{
            localizedFormat("cannot write the journal %s. Name a file that can be written.", options.journalFile)};
    }
    std::vector<VirtualPrinterSettings> printers;
    Locations taken;
    if (auto problem = parsePrinters(options, taken, printers)) return problem;
    bus = std::make_unique<VirtualBus>(mainQueue, clock, journal);
    for (VirtualPrinterSettings& printer : printers) {
        // After all explicit locations are known, whatever the order of the options.
        if (!printer.location) printer.location = VirtualBus::firstFreeLocation(taken);
        taken.insert(*printer.location);
        bus->add(printer);
    }
    return std::nullopt;
}

} // namespace zul
