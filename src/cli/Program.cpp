#include "cli/Program.h"

#include "Classes/CommandFrame.h"
#include "Classes/ProductTable.h"
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

void noteInterrupt(int signal) {
    const int kept = errno;
    const char byte = signal == SIGINT ? 'i' : 't';
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

std::string nameOf(const TBUSBPrinterZUL& printer) {
    std::string name = printer.model().value_or(printer.productUSB().value_or("printer"));
    const auto serial = printer.printerSerialNumber() ? printer.printerSerialNumber() : printer.serialNumberUSB();
    if (serial && !serial->empty()) name += ' ' + *serial;
    return name + " (" + printer.locationText() + ")";
}

void EventRouter::printerEvent(const PrinterEvent& event) {
    if (event.kind == PrinterEvent::Kind::notPermitted || event.kind == PrinterEvent::Kind::openFailed) {
        _program.addUnusable(messageForUnusable(event)); // on the main queue, at an arrival
        return;
    }
    const bool restarts = event.command == kCommandEnterLoader || event.command == kCommandProgramFlash;
    if (event.kind == PrinterEvent::Kind::commandSent && restarts && event.code == kIOReturnSuccess) {
        _program.mainQueue.async([this, key = event.key] { _program.expectRestart(key); });
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

void Program::expectRestart(const std::string& key) {
    if (_realBus == nullptr) return;
    for (const Printer& printer : printers()) {
        if (printer->keyUSBdevice() == key) _realBus->setRestartExpected(printer->locationNumber(), true);
    }
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
        auto bus = std::make_unique<LibusbBus>(mainQueue, clock);
        _realBus = bus.get();
        _bus = std::move(bus);
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
    // Behind the insertion of the rows; twice, because what is queued first asks for a close behind itself.
    mainQueue.async([this, ready = std::move(ready)] {
        afterQueues(printers(), [this, ready] { afterQueues(printers(), ready); });
    });
    return kDone;
}

// ---- printers -------------------------------------------------------------------------------------------------------

std::string Program::listed() const {
    std::string text;
    for (const Printer& printer : printers()) {
        text += (text.empty() ? "" : ", ") + printer->keyUSBdevice() + " = " + nameOf(*printer);
    }
    return text;
}

void Program::addUnusable(const std::string& message) {
    if (unusableFound) {
        unusableFound(message);
    } else {
        _unusable.push_back(message);
    }
}

// Known models that this program is not yet released for: they can be admitted by name.
std::vector<std::string> Program::notAdmitted() const {
    std::vector<std::string> messages;
    for (const ServiceToken token : registry.services()) {
        const auto service = registry.service(token);
        std::uint16_t vendor = 0;
        std::uint16_t productID = 0;
        if (!service || service->GetDeviceVendor(vendor) != kIOReturnSuccess ||
            service->GetDeviceProduct(productID) != kIOReturnSuccess)
            continue;
        const Product* product = productWithID(productID);
        if (product == nullptr || !productVendorIDs().contains(vendor) || acceptedProductIDs().contains(productID) ||
            options.admittedProducts.contains(productID))
            continue;
        messages.push_back(formatted("the %s at %s is left alone: its product ID is not admitted. Admit it for this "
                                     "run with --admit-product 0x%.4X.",
                                     std::string(product->model), service->locationText(), productID));
    }
    return messages;
}

void Program::noteUnusable() const {
    for (const std::string& message : _unusable) output.note(message);
    for (const std::string& message : notAdmitted()) output.note(message);
}

void Program::tellNoPrinter(int exitStatus) {
    noteUnusable();
    output.problem("no printer is attached. Connect a ZUL printer by USB and switch it on.", exitStatus);
}

Program::Printer Program::find(const std::string& name, int& exitStatus) {
    exitStatus = kNoPrinter;
    const auto all = printers();
    const auto isCalled = [&](const Printer& printer) {
        return name == printer->keyUSBdevice() || name == printer->printerSerialNumber() ||
               name == printer->locationText() || name == printer->serialNumberUSB();
    };
    if (std::ranges::count_if(all, isCalled) > 1) {
        exitStatus = kWrongUsage;
        output.problem("\"" + name +
                           "\" stands for several printers; use a key or a position in the list: " + listed() + ".",
                       exitStatus);
        return nullptr;
    }
    if (const auto found = std::ranges::find_if(all, isCalled); found != all.end()) return *found;
    // A short number is a position; a serial number that looks like one was found above.
    const auto position = static_cast<std::size_t>(std::max<std::int64_t>(integerValue(name), 0));
    if (name.find_first_not_of("0123456789") == std::string::npos && position >= 1 && position <= all.size()) {
        return all[position - 1];
    }
    if (all.empty()) {
        tellNoPrinter(exitStatus);
    } else {
        noteUnusable();
        output.problem("no printer is called \"" + name + "\". Attached: " + listed() + ".", kNoPrinter);
    }
    return nullptr;
}

Program::Printer Program::findOnly(const std::vector<std::string>& names, int& exitStatus) {
    exitStatus = kNoPrinter;
    if (!names.empty()) return find(names.front(), exitStatus);
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

void Program::onInterrupt(std::function<void(Interrupt)> handler) {
    if (::pipe(interruptPipe) != 0) return;
    std::thread([this, handler = std::move(handler)] {
        char byte = 0;
        for (;;) {
            const auto count = ::read(interruptPipe[0], &byte, 1);
            const auto interrupt = byte == 'i' ? Interrupt::byUser : Interrupt::bySystem;
            if (count == 1) mainQueue.async([handler, interrupt] { handler(interrupt); });
            if (count == 0 || (count < 0 && errno != EINTR)) return;
        }
    }).detach();
    struct sigaction action {};
    action.sa_handler = noteInterrupt;
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
}

} // namespace zul::cli
