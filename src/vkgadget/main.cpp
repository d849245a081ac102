// vkgadget: a virtual printer as a real USB device, on a device controller of this machine. Runs the main queue until a
// signal ends it, then unplugs and removes the gadget.
#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/dispatch/Signals.h"
#include "virtual_printer/VirtualJournal.h"
#include "virtual_printer/VirtualPrinterSettings.h"
#include "vkgadget/GadgetError.h"
#include "vkgadget/GadgetPrinter.h"
#include "vkgadget/Host.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

namespace {

using namespace zul;

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

struct Options {
    std::string printer;
    std::string udc;
    std::string name;
    std::string journal;
};

// Returns the exit status if the program ends here; nullopt if it continues.
std::optional<int> parse(int argc, char** argv, Options& options) {
    CLI::App app("A virtual printer as a real USB device. Needs root, configfs and a USB device controller.");
    app.add_option("printer", options.printer, "MODEL[,key=value...]; \"help\" lists models and keys")->required();
    app.add_option("--udc", options.udc, "USB device controller to plug into (default: the first that is free)");
    app.add_option("--name", options.name, "name of the gadget in configfs (default: from the controller)");
    app.add_option("--journal", options.journal, "file that gets a JSON line for everything that the printer sees");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kWrongUsage;
    }
    if (options.printer != "help") return std::nullopt;
    std::cout << virtualPrinterHelp();
    return 0;
}

int plugIn(const VirtualPrinterSettings& settings, const Options& options) {
    checkHost();
    const std::string udc = chooseUdc(options.udc);
    // Never destroyed: a timer of the clock may still post at process exit.
    static auto& clock = *new RealClock;
    static auto& mainQueue = *new MainQueue(clock);
    const Signals signals(mainQueue, {SIGTERM, SIGINT, SIGHUP}, [](int /*number*/) { mainQueue.quit(0); });
    const auto journal = std::make_shared<VirtualJournal>(clock);
    if (!options.journal.empty() && !journal->writeTo(options.journal)) {
        throw GadgetError("cannot write to " + options.journal);
    }
    const std::string name = options.name.empty() ? "vkgadget-" + udc : options.name;
    GadgetPrinter printer(mainQueue, clock, settings, name, journal);
    printer.start(udc);
    const int status = mainQueue.run();
    printer.stop();
    return status;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    if (const auto status = parse(argc, argv, options)) return *status;
    const VirtualPrinterParse parsed = parseVirtualPrinter(options.printer);
    const std::string problem = parsed.settings ? problemOfGadget(*parsed.settings) : parsed.problem;
    if (!parsed.settings || !problem.empty()) {
        std::cerr << "vkgadget: " << problem << '\n';
        return kWrongUsage;
    }
    try {
        return plugIn(*parsed.settings, options);
    } catch (const GadgetError& error) {
        std::cerr << "vkgadget: " << error.what() << '\n';
        return kFailed;
    }
}
