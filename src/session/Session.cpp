// The environment, bus and controller of a run, and their connection to the supervisor of updates.
// Owned by the command line or the window; main queue, except where noted.
#include "session/Session.h"

#include "Classes/Outlets.h"
#include "Classes/PrinterEvents.h"
#include "Classes/PrinterTypes.h"
#include "Classes/StatusCodeNames.h"
#include "Classes/TBPrinters.h"
#include "archive/FirmwareDigests.h"
#include "archive/ProductTable.h"
#include "platform/dispatch/Clock.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/PrinterReservations.h"
#include "platform/usb/ServiceRegistry.h"
#include "session/EmbeddedPrinters.h"
#include "session/FailureTexts.h"
#include "session/HistoryOptions.h"
#include "session/SessionOptions.h"
#include "session/SessionProblem.h"
#include "update/PrinterLocks.h"
#include "update/UpdateServices.h"
#include "update/UpdateSupervisor.h"
#include "usb/libusb/LibusbBus.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>
#include <variant>
#include <vector>

namespace zul {

namespace {

ServiceMatching printerInterfaces() {
    ServiceMatching matching;
    matching.bInterfaceClass = 7; // printers
    matching.bInterfaceSubClass = 1;
    return matching;
}

} // namespace

void Session::EventRouter::printerEvent(const PrinterEvent& event) {
    const bool isUnusable = std::holds_alternative<events::NotPermitted>(event.what) ||
                            std::holds_alternative<events::OpenFailed>(event.what);
    if (isUnusable) {
        _session.unusableDidArrive(event); // on the main queue, while the printer is being attached
    } else {
        _session.supervisor.printerEvent(event);
        if (const auto* const opened = std::get_if<events::Opened>(&event.what)) _session.openDidEnd(opened->code);
    }
}

Session::Session(SessionOptions options, AlertOutlet& alerts, ApplicationOutlet& application, Clock* givenClock)
    : clock(givenClock != nullptr ? *givenClock : _machineClock), defaults(UserDefaults::standardFile()),
      bundle(Bundle::mainBundle(options.firmwareArchive)),
      locks(lockOptions(application.processName(), !options.virtualPrinters.empty())),
      recorder(mainQueue, clock, historyOptions(options), application.processName(), ZUL_VERSION),
      supervisor(servicesFor(alerts), {}), environment{.mainQueue = mainQueue,
                                                       .clock = clock,
                                                       .registry = registry,
                                                       .userDefaults = defaults,
                                                       .mainBundle = bundle,
                                                       .archive = archive,
                                                       .alerts = supervisor,
                                                       .application = application,
                                                       .events = &_events,
                                                       .admittedProductIDs = options.admittedProducts},
      _options(std::move(options)), _unusable(registry, _options.admittedProducts) {
    // A user who names the sample archive explicitly knows what it is: this is a test bench.
    _areSamplesWithheld = _options.virtualPrinters.empty() && _options.firmwareArchive.empty() &&
                          readFirmwareDigests(bundle.archiveFolder()).isSample;
    // Withheld from the whole run, not only from the action: a printer found in its loader could be updated otherwise.
    if (_areSamplesWithheld) bundle.withholdArchive();
}

Session::~Session() {
    endBus();
    mainQueue.close(); // what waits there may hold the controller, which uses the environment until its end
}

PrinterLocksOptions Session::lockOptions(const std::string& program, bool areEmbedded) const {
    PrinterLocksOptions options;
    options.program = program;
    options.unixTime = [this] { return std::chrono::system_clock::to_time_t(clock.wallTime()); };
    // Embedded printers of all processes have the same keys but are different printers.
    if (areEmbedded) options.nameSpace += "-embedded-" + std::to_string(::getpid());
    return options;
}

UpdateServices Session::servicesFor(AlertOutlet& alerts) {
    return {.mainQueue = mainQueue,
            .clock = clock,
            .alerts = alerts,
            .printersWithKey = [this](const std::string& key) { return printersWithKey(key); },
            .setKept =
                [this](std::uint32_t location, bool isKept) {
                    if (_realBus != nullptr) _realBus->setKept(location, isKept);
                },
            .seesArrivals = [this] { return _realBus == nullptr || _realBus->seesArrivals() != ArrivalSight::no; },
            .locks = &locks,
            .takeClaim = [this](const std::string& key) { return takeClaim(key); },
            .returnClaim = [this](const std::string& key, PrinterLock lock) { returnClaim(key, std::move(lock)); },
            .recorder = &recorder,
            .archive = &archive,
            .keepAwake = [this](bool isUnderWay) { sleepInhibitor.setHeld(isUnderWay); }};
}

void Session::setObserver(SessionObserver* observer) {
    _observer = observer;
    supervisor.setObserver(observer);
    if (observer == nullptr) {
        recorder.setProblemHandler(nullptr);
    } else {
        recorder.setProblemHandler([observer](const std::string& text) { observer->noteDidArise(text); });
    }
}

void Session::endBus() {
    // A printer that was ordered to restart and never left the bus is returned like any other.
    if (_realBus != nullptr && controller) {
        for (const Printer& printer : printers()) _realBus->setKept(printer->locationNumber(), false);
    }
    if (_bus) _bus->stop();
    // The process may end right after this call.
    recorder.flush();
}

std::optional<SessionProblem> Session::makeBus() {
    if (_options.virtualPrinters.empty()) {
        LibusbBusOptions busOptions;
        busOptions.reservations = &locks;
        // Only the printers that this run uses: the nodes of all others stay closed.
        busOptions.readsIdentityAhead = [this](std::uint16_t vendor, std::uint16_t product) {
            return productVendorIDs().contains(vendor) &&
                   (acceptedProductIDs().contains(product) || _options.admittedProducts.contains(product));
        };
        auto bus = std::make_unique<LibusbBus>(mainQueue, clock, std::move(busOptions));
        _realBus = bus.get();
        _bus = std::move(bus);
        return std::nullopt;
    }
    std::unique_ptr<VirtualBus> bus;
    if (auto problem = makeEmbeddedPrinters(_options, mainQueue, clock, bus)) return problem;
    // Embedded printers have no print queues: the user's own queues must not be changed with their settings.
    environment.shell = [](const std::string&) { return 0; };
    _virtualBus = bus.get();
    _bus = std::move(bus);
    return std::nullopt;
}

std::optional<SessionProblem> Session::start(TBPrinters::Outlets outlets) {
    TBPrinters::initialize(mainQueue);
    if (auto problem = makeBus()) return problem;
    controller = std::make_shared<TBPrinters>(environment, std::move(outlets));
    controller->init();
    watchServices();
    // After watchServices(), because the start announces what is attached.
    if (const IOReturn code = _bus->start(registry); code != kIOReturnSuccess) {
        logText("the USB bus cannot be watched: %s\n", strForIOReturn(code));
        return SessionProblem{.message = busFailureText(code), .code = strForIOReturn(code)};
    }
    // Read in parallel with the first queries; whenEnumerated() waits for both.
    supervisor.readInterrupted([this] { historyIsRead(); });
    controller->awakeFromNib();
    controller->applicationDidFinishLaunching();
    return std::nullopt;
}

void Session::historyIsRead() {
    _isHistoryRead = true;
    if (_observer != nullptr) _observer->interruptedDidChange();
    for (Block& block : std::exchange(_waitsForHistory, {})) whenEnumerated(std::move(block));
}

void Session::whenEnumerated(Block block) {
    if (!_isHistoryRead) {
        _waitsForHistory.push_back(std::move(block));
    } else if (_realBus != nullptr) {
        _realBus->whenEnumerated(std::move(block));
    } else {
        block();
    }
}

// ---- printers -------------------------------------------------------------------------------------------------------

std::vector<Session::Printer> Session::printersWithKey(const std::string& key) const {
    if (!controller) return {};
    auto printers = controller->printers();
    std::erase_if(printers, [&](const Printer& one) { return one->keyUSBdevice() != key || one->isReleased(); });
    return printers;
}

Session::Printer Session::printerWithKey(const std::string& key) const {
    const auto printers = printersWithKey(key);
    return printers.empty() ? nullptr : printers.front();
}

std::optional<InterfaceHolder> Session::whileReserved(const Printer& printer, const std::string& activity,
                                                      const std::function<void()>& action) {
    auto result = locks.tryLock(printer->keyUSBdevice(), activity, printer->raw1284DeviceID().value_or(""));
    if (result.isRefused()) return result.holder;
    if (!result.problem.empty() && _observer != nullptr) _observer->noteDidArise(result.problem);
    action();
    // Held until the commands that action has queued are done.
    auto lock = std::make_shared<std::optional<PrinterLock>>(std::move(result.lock));
    afterQueues({printer}, [lock] { lock->reset(); });
    return std::nullopt;
}

std::optional<InterfaceHolder> Session::setClaimed(const Printer& printer, bool isClaimed) {
    const std::string key = printer->keyUSBdevice();
    if (!isClaimed) {
        printer->setIsOwned(0);
        afterQueues({printer}, [this, key] { _claims.erase(key); });
        return std::nullopt;
    }
    auto result = locks.tryLock(key, kClaimActivity, printer->raw1284DeviceID().value_or(""));
    if (result.isRefused()) return result.holder;
    if (!result.problem.empty() && _observer != nullptr) _observer->noteDidArise(result.problem);
    if (result.lock) _claims.insert_or_assign(key, std::move(*result.lock));
    printer->setIsOwned(1);
    // Another process may hold it, which shows only when it is opened.
    afterQueues({printer}, [this, key, printer] {
        if (printer->ownership() != Ownership::thisProgram) _claims.erase(key);
    });
    return std::nullopt;
}

// A detached printer loses its claim.
void Session::forgetClaims() {
    std::erase_if(_claims, [this](const auto& claim) { return printerWithKey(claim.first) == nullptr; });
}

std::optional<PrinterLock> Session::takeClaim(const std::string& key) {
    auto claim = _claims.extract(key);
    return claim ? std::optional(std::move(claim.mapped())) : std::nullopt;
}

// A printer that has restarted for its update is not claimed any more: its lock ends here.
void Session::returnClaim(const std::string& key, PrinterLock lock) {
    const Printer printer = printerWithKey(key);
    if (!printer || printer->ownership() != Ownership::thisProgram) return;
    lock.setActivity(kClaimActivity);
    _claims.insert_or_assign(key, std::move(lock));
}

void Session::unusableDidArrive(const PrinterEvent& event) {
    const std::string hint = _unusable.add(event);
    if (_observer != nullptr) _observer->unusablePrinterDidArrive(hint);
}

// Runs on the thread of the open. Without an earlier missing right, no hint can change.
void Session::openDidEnd(IOReturn code) {
    if (code == kIOReturnNotPrivileged) _wasRightMissing = true;
    if (!_wasRightMissing) return;
    mainQueue.async([this] { // safe: the session owns the queue and its blocks
        if (_observer != nullptr) _observer->unusablePrintersDidChange();
    });
}

// The engine reports neither the printers that it rejects nor their departure.
void Session::watchServices() {
    const auto port = TBPrinters::sharedNotificationPort(environment);
    const auto drain = [](ServiceIterator& services) {
        while (services.next() != 0) {
        }
    };
    for (const auto kind : {ServiceNotification::matched, ServiceNotification::terminated}) {
        const auto services = port->addMatchingNotification(kind, printerInterfaces(), [this, drain](auto& iterator) {
            drain(iterator);
            // Queued, because a service is still registered while its removal is announced.
            mainQueue.async([this] {
                _unusable.forgetDeparted();
                forgetClaims();
                if (_observer != nullptr) _observer->unusablePrintersDidChange();
            });
        });
        drain(*services);
    }
}

std::vector<std::string> Session::unusablePrinters() const {
    std::vector<std::string> texts = _unusable.hints();
    if (!controller) return texts;
    for (const Printer& printer : printers()) {
        if (std::string text = missingRightText(*printer); !text.empty()) texts.push_back(std::move(text));
    }
    return texts;
}

void Session::afterQueues(const std::vector<Printer>& all, Block block) {
    // One more than the queues, so that the block runs also without any, and never inside this call.
    auto left = std::make_shared<std::size_t>(1);
    auto done = std::make_shared<Block>(std::move(block));
    const auto countDown = [left, done] {
        if (--*left == 0) (*done)();
    };
    for (const Printer& printer : all) {
        const auto queue = printer->printerCommandQueue();
        if (!queue) continue; // already queried, inline
        ++*left;
        // Counted down on the main queue only, so the counter needs no lock.
        queue->async([this, countDown] { mainQueue.async(countDown); });
    }
    mainQueue.async(countDown);
}

} // namespace zul
