#include "session/Session.h"

#include "Classes/CommandFrame.h"
#include "StatusCodeNames.h"
#include "archive/FirmwareDigests.h"
#include "archive/ProductTable.h"
#include "holven_log/HOLVEN_Log.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/foundation/SystemLog.h"
#include "usb/libusb/LibusbBus.h"
#include "virtual_printer/VirtualBus.h"
#include "virtual_printer/VirtualPrinterSettings.h"

#include <algorithm>
#include <unistd.h>

namespace zul {

namespace {

std::string messageForUnusable(const PrinterEvent& event) {
    const std::string node = event.text.value_or("");
    if (event.kind == PrinterEvent::Kind::notPermitted) {
        return localizedFormat("the printer at %s may not be used: no right to open %s. Install the udev rule "
                               "70-zul-printer-utility.rules (to /etc/udev/rules.d/), run \"udevadm control --reload\" "
                               "and plug the printer in again; or join the group lp.",
                               event.location, node);
    }
    return localizedFormat("the printer at %s cannot be opened (%s). Plug it in again.", event.location,
                           strForIOReturn(event.code));
}

ServiceMatching printerInterfaces() {
    ServiceMatching matching;
    matching.bInterfaceClass = 7; // printers
    matching.bInterfaceSubClass = 1;
    return matching;
}

// The log takes standard error with it into its file; here that stays where the user reads what went wrong.
bool openLogFile(const std::string& file) {
    const int terminal = ::dup(STDERR_FILENO);
    const bool isOpen = HOLVEN_Log::setLogFile(file);
    if (terminal >= 0) {
        ::dup2(terminal, STDERR_FILENO);
        ::close(terminal);
    }
    return isOpen;
}

} // namespace

std::optional<SessionProblem> openLogs(const SessionOptions& options, const std::string& programName) {
    setSystemLogVerbose(options.verbose);
    HOLVEN_Log::setApplicationName(programName);
    HOLVEN_Log::setShouldLogToStdErr(options.verbose);
    if (!options.verbose) setStandardErrorSink([](const std::string&) {}); // the system log has it anyway
    if (options.logFile.empty() || openLogFile(options.logFile)) return std::nullopt;
    return SessionProblem{
        localizedFormat("cannot write the log %s. Name a file that can be written.", options.logFile)};
}

void EventRouter::printerEvent(const PrinterEvent& event) {
    if (event.kind == PrinterEvent::Kind::notPermitted || event.kind == PrinterEvent::Kind::openFailed) {
        _session.addUnusable(event); // on the main queue, at an arrival
        return;
    }
    const bool restarts = event.command == kCommandEnterLoader || event.command == kCommandProgramFlash;
    if (event.kind == PrinterEvent::Kind::commandSent && restarts && event.code == kIOReturnSuccess) {
        _session.mainQueue.async([this, key = event.key] { _session.expectRestart(key); });
    }
    const bool isUnderWay = event.kind == PrinterEvent::Kind::progressValue && event.value > 0 &&
                            event.value < static_cast<std::int64_t>(UpdateProgress::finished);
    if (isUnderWay && _session.updateFound && !_session.monitor.state(event.key)) {
        _session.monitor.beginUpdate(event.key, std::nullopt, std::nullopt, 0);
        _session.mainQueue.async([this, key = event.key] { _session.updateFound(key); });
    }
    _session.monitor.printerEvent(event);
}

Session::Session(SessionOptions options, AlertOutlet& alerts, ApplicationOutlet& application, Clock* givenClock)
    : clock(givenClock != nullptr ? *givenClock : _machineClock), defaults(UserDefaults::standardFile()),
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
                  .archive = archive,
                  .alerts = alerts,
                  .application = application,
                  .events = &events,
                  .admittedProductIDs = options.admittedProducts},
      _options(std::move(options)) {
    // Naming the sample archive is how a test bench says that it knows.
    _areSamplesWithheld = _options.virtualPrinters.empty() && _options.firmwareArchive.empty() &&
                          readFirmwareDigests(bundle.archiveFolder()).isSample;
    if (_areSamplesWithheld) bundle.withholdArchive();
}

Session::~Session() {
    endBus();
}

void Session::endBus() {
    // A printer that was told to restart and never left is given back like any other.
    if (_realBus != nullptr && controller) {
        for (const Printer& printer : printers()) _realBus->setRestartExpected(printer->locationNumber(), false);
    }
    if (_bus) _bus->stop();
}

std::optional<SessionProblem> Session::makeVirtualBus() {
    auto journal = std::make_shared<VirtualJournal>(clock);
    if (!_options.journalFile.empty() && !journal->writeTo(_options.journalFile)) {
        return SessionProblem{
            localizedFormat("cannot write the journal %s. Name a file that can be written.", _options.journalFile)};
    }
    std::vector<VirtualPrinterSettings> printers;
    std::set<VirtualBus::Location> taken; // the places that were named come first: others are put around them
    for (const std::string& text : _options.virtualPrinters) {
        auto parse = parseVirtualPrinter(text);
        if (!parse.settings) return SessionProblem{"--virtual " + text + ": " + parse.problem + ".", true};
        // Each printer its own serial number, unless one was named.
        if (text.find(",serial=") == std::string::npos) {
            parse.settings->serial = formatted("%06d", static_cast<int>(printers.size()) + 1);
        }
        if (parse.settings->location && !taken.insert(*parse.settings->location).second) {
            return SessionProblem{"--virtual " + text + ": another printer is at that location already.", true};
        }
        printers.push_back(*parse.settings);
    }
    auto bus = std::make_unique<VirtualBus>(mainQueue, clock, journal);
    for (VirtualPrinterSettings& printer : printers) {
        if (!printer.location) printer.location = VirtualBus::firstFreeLocation(taken);
        taken.insert(*printer.location);
        bus->add(printer);
    }
    // Embedded printers have no print queues: the user's own must not go with a change of their settings.
    TBUSBPrinterZUL::setShell([](const std::string&) { return 0; });
    _virtualBus = bus.get();
    _bus = std::move(bus);
    return std::nullopt;
}

std::optional<SessionProblem> Session::startSession(TBPrinters::Outlets outlets) {
    TBPrinters::initialize(mainQueue);
    if (!_options.virtualPrinters.empty()) {
        if (auto problem = makeVirtualBus()) return problem;
    } else {
        auto bus = std::make_unique<LibusbBus>(mainQueue, clock);
        _realBus = bus.get();
        _bus = std::move(bus);
    }
    controller = std::make_shared<TBPrinters>(environment, std::move(outlets));
    controller->init();
    watchServices();
    if (const IOReturn code = _bus->start(registry); code != kIOReturnSuccess) {
        return SessionProblem{
            localizedFormat("cannot watch the USB bus (%s). Is USB available on this machine?", strForIOReturn(code))};
    }
    controller->awakeFromNib();
    controller->applicationDidFinishLaunching();
    return std::nullopt;
}

// ---- printers -------------------------------------------------------------------------------------------------------

Session::Printer Session::printerWithKey(const std::string& key) const {
    for (Printer& printer : controller->printers()) {
        if (printer->keyUSBdevice() == key) return printer;
    }
    return nullptr;
}

void Session::expectRestart(const std::string& key) {
    if (_realBus == nullptr) return;
    if (const Printer printer = printerWithKey(key)) _realBus->setRestartExpected(printer->locationNumber(), true);
}

void Session::addUnusable(const PrinterEvent& event) {
    const std::string message = messageForUnusable(event);
    if (unusableFound) {
        unusableFound(message);
    } else {
        _unusable.push_back({event.location, event.text.value_or(""), message});
    }
}

// The engine says nothing of printers that it does not take, nor of their departure.
void Session::watchServices() {
    const auto port = TBPrinters::sharedNotificationPort(environment);
    const auto drain = [](ServiceIterator& services) {
        while (services.next() != 0) {
        }
    };
    for (const auto kind : {ServiceNotification::matched, ServiceNotification::terminated}) {
        const auto services = port->addMatchingNotification(kind, printerInterfaces(), [this, drain](auto& iterator) {
            drain(iterator);
            // Later: a service is still known while its departure is told.
            mainQueue.async([this] {
                std::erase_if(_unusable, [this](const Unusable& one) { return !isAttached(one); });
                if (unusableChanged) unusableChanged();
            });
        });
        drain(*services);
    }
}

// Known models that this program is not yet released for: they can be admitted by name.
std::vector<std::string> Session::notAdmitted() const {
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
            _options.admittedProducts.contains(productID))
            continue;
        messages.push_back(localizedFormat("the %s at %s is left alone: its product ID is not admitted. Admit it for "
                                           "this run with --admit-product 0x%.4X.",
                                           std::string(product->model), service->locationText(), productID));
    }
    return messages;
}

bool Session::isAttached(const Unusable& one) const {
    return std::ranges::any_of(registry.services(), [&](ServiceToken token) {
        const auto service = registry.service(token);
        return service && service->locationText() == one.location && service->nodePath() == one.node;
    });
}

std::vector<std::string> Session::unusablePrinters() const {
    std::vector<std::string> messages;
    for (const Unusable& one : _unusable) {
        if (isAttached(one)) messages.push_back(one.message);
    }
    for (std::string& message : notAdmitted()) messages.push_back(std::move(message));
    return messages;
}

void Session::afterQueues(const std::vector<Printer>& all, Block block) {
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

} // namespace zul
