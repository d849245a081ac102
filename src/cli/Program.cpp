#include "cli/Program.h"

#include "StatusCodeNames.h"
#include "cli/ExitStatus.h"
#include "platform/foundation/Format.h"
#include "usb/libusb/LibusbBus.h"
#include "virtual_printer/VirtualBus.h"
#include "virtual_printer/VirtualPrinterSettings.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <thread>
#include <unistd.h>

namespace zul::cli {

namespace {

int interruptPipe[2] = {-1, -1};

void noteInterrupt(int /*signal*/) {
    const int kept = errno;
    const char byte = 0;
    [[maybe_unused]] const auto written = ::write(interruptPipe[1], &byte, 1);
    errno = kept;
}

std::string messageForUnusable(const PrinterEvent& event) {
    const std::string node = event.text.value_or("");
    if (event.kind == PrinterEvent::Kind::notPermitted) {
        return formatted("the printer at %s may not be used: no right to open %s. Install the udev rule "
                         "70-zul-printer-utility.rules (to /etc/udev/rules.d/), run \"udevadm control --reload\" and "
                         "plug the printer in again; or join the group lp.",
                         event.location, node);
    }
    return formatted("the printer at %s cannot be opened (%s). Plug it in again.", event.location,
                     strForIOReturn(event.code));
}

} // namespace

void EventRouter::printerEvent(const PrinterEvent& event) {
    if (event.kind == PrinterEvent::Kind::notPermitted || event.kind == PrinterEvent::Kind::openFailed) {
        _program.unusable.push_back(messageForUnusable(event)); // told on the main queue, at an arrival
        return;
    }
    _program.monitor.printerEvent(event);
}

Program::Program(Options runOptions)
    : options(std::move(runOptions)), output(options.json), defaults(UserDefaults::standardFile()),
      bundle(Bundle::mainBundle(options.firmwareArchive)), monitor(clock,
                                                                   [this](const std::string& key) {
                                                                       mainQueue.async([this, key] {
                                                                           if (updateChanged) updateChanged(key);
                                                                       });
                                                                   }),
      environment{.mainQueue = mainQueue,
                  .clock = clock,
                  .registry = registry,
                  .userDefaults = defaults,
                  .mainBundle = bundle,
                  .alerts = alerts,
                  .application = application,
                  .events = &events,
                  .admittedProductIDs = options.admittedProducts} {}

Program::~Program() {
    endBus();
}

void Program::endBus() {
    if (_bus) _bus->stop();
}

int Program::makeVirtualBus() {
    auto journal = std::make_shared<VirtualJournal>(clock);
    if (!options.journalFile.empty() && !journal->writeTo(options.journalFile)) {
        output.problem("cannot write the journal " + options.journalFile + ". Name a file that can be written.",
                       kFailed);
        return kFailed;
    }
    auto bus = std::make_unique<VirtualBus>(mainQueue, clock, journal);
    int number = 0;
    for (const std::string& text : options.virtualPrinters) {
        auto parse = parseVirtualPrinter(text);
        if (!parse.settings) {
            output.problem("--virtual " + text + ": " + parse.problem + ".", kWrongUsage);
            return kWrongUsage;
        }
        // Each printer its own serial number, unless one was named.
        ++number;
        if (text.find("serial=") == std::string::npos) parse.settings->serial = formatted("%06d", number);
        bus->add(*parse.settings);
    }
    _bus = std::move(bus);
    return kDone;
}

int Program::start(std::function<void()> ready) {
    TBPrinters::initialize(mainQueue);
    if (!options.virtualPrinters.empty()) {
        if (const int status = makeVirtualBus(); status != kDone) return status;
    } else {
        _bus = std::make_unique<LibusbBus>(mainQueue, clock);
    }
    controller = std::make_shared<TBPrinters>(environment, TBPrinters::Outlets{});
    controller->init();
    if (const IOReturn code = _bus->start(registry); code != kIOReturnSuccess) {
        output.problem(
            formatted("cannot watch the USB bus (%s). Is USB available on this machine?", strForIOReturn(code)),
            kFailed);
        return kFailed;
    }
    controller->awakeFromNib();
    controller->applicationDidFinishLaunching();
    // Behind the insertion of the rows.
    mainQueue.async([this, ready = std::move(ready)] { afterQueues(printers(), ready); });
    return kDone;
}

// ---- printers -------------------------------------------------------------------------------------------------------

std::string Program::listed() const {
    std::string text;
    for (const Printer& printer : printers()) {
        text += (text.empty() ? "" : ", ") + printer->keyUSBdevice() + " (" + textOrNull(printer->model()) + " " +
                textOrNull(printer->printerSerialNumber()) + " at " + printer->locationText() + ")";
    }
    return text;
}

void Program::tellNoPrinter(int exitStatus) {
    for (const std::string& message : unusable) output.note(message);
    output.problem("no printer is attached. Connect a ZUL printer by USB and switch it on.", exitStatus);
}

Program::Printer Program::find(const std::string& name) {
    const auto all = printers();
    const auto found = std::ranges::find_if(all, [&](const Printer& printer) {
        return name == printer->keyUSBdevice() || name == printer->printerSerialNumber() ||
               name == printer->locationText() || name == printer->serialNumberUSB();
    });
    if (found != all.end()) return *found;
    // A short number is a position; a serial number that looks like one was found above.
    const auto position = static_cast<std::size_t>(std::max<std::int64_t>(integerValue(name), 0));
    if (name.find_first_not_of("0123456789") == std::string::npos && position >= 1 && position <= all.size()) {
        return all[position - 1];
    }
    if (all.empty()) {
        tellNoPrinter(kNoPrinter);
    } else {
        output.problem("no printer is called \"" + name + "\". Attached: " + listed() + ".", kNoPrinter);
    }
    return nullptr;
}

Program::Printer Program::findOnly(const std::vector<std::string>& names, int& exitStatus) {
    exitStatus = kNoPrinter;
    if (!names.empty()) return find(names.front());
    const auto all = printers();
    if (all.size() == 1) return all.front();
    if (all.empty()) {
        tellNoPrinter(kNoPrinter);
    } else {
        exitStatus = kWrongUsage;
        output.problem("several printers are attached; name one of them: " + listed() + ".", kWrongUsage);
    }
    return nullptr;
}

void Program::afterQueue(const Printer& printer, Block block) {
    afterQueues({printer}, std::move(block));
}

void Program::afterQueues(const std::vector<Printer>& all, Block block) {
    auto left = std::make_shared<std::size_t>(1);
    auto done = std::make_shared<Block>(std::move(block));
    const auto countDown = [left, done] {
        if (--*left == 0) (*done)();
    };
    for (const Printer& printer : all) {
        const auto queue = printer->printerCommandQueue();
        if (!queue) continue; // it has been asked already, inline
        ++*left;
        queue->async([this, countDown] { mainQueue.async(countDown); });
    }
    mainQueue.async(countDown);
}

void Program::onInterrupt(Block block) {
    if (::pipe(interruptPipe) != 0) return;
    std::thread([this, block] {
        char byte = 0;
        for (;;) {
            const auto count = ::read(interruptPipe[0], &byte, 1);
            if (count == 1) mainQueue.async(block);
            if (count == 0 || (count < 0 && errno != EINTR)) return;
        }
    }).detach();
    struct sigaction action {};
    action.sa_handler = noteInterrupt;
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

} // namespace zul::cli
