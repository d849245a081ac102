// The lab: an operator that stores alerts, and the engine with embedded printers on a simulated clock.
// Used by the flow tests on the test's thread.
#include "Lab.h"

#include "holven_log/HOLVEN_Log.h"
#include "platform/foundation/SystemLog.h"

#include <algorithm>
#include <doctest/doctest.h>
#include <fstream>
#include <mutex>
#include <stdlib.h>
#include <thread>

namespace zul {

namespace fs = std::filesystem;

// ---- operator -------------------------------------------------------------------------------------------------------

void Operator::Binding::bindButtonEnabled(std::size_t button, const std::shared_ptr<KeyValueObservable>& /*object*/,
                                          const std::string& /*keyPath*/, std::function<bool()> isEnabled) {
    enabled[button] = std::move(isEnabled);
}

void Operator::beginAlert(AlertDescription alert) {
    Binding binding;
    binding.count = alert.buttons.size();
    if (alert.layout) alert.layout(binding);
    _history.push_back(alert.messageText);
    _alerts.push_back(std::move(alert));
    _bindings.push_back(std::move(binding));
}

std::string Operator::title() const {
    return _alerts.empty() ? "" : _alerts.front().messageText;
}
std::string Operator::message() const {
    return _alerts.empty() ? "" : _alerts.front().informativeText;
}
std::vector<std::string> Operator::buttons() const {
    return _alerts.empty() ? std::vector<std::string>{} : _alerts.front().buttons;
}

bool Operator::isEnabled(const std::string& button) const {
    if (_alerts.empty()) return false;
    const auto& titles = _alerts.front().buttons;
    const auto found = std::ranges::find(titles, button);
    if (found == titles.end()) return false;
    const auto& enabled = _bindings.front().enabled;
    const auto binding = enabled.find(static_cast<std::size_t>(found - titles.begin()));
    return binding == enabled.end() || binding->second();
}

void Operator::setAgreed(bool agreed) {
    REQUIRE(!_alerts.empty());
    REQUIRE(_alerts.front().accessory);
    CheckBox& box = *_alerts.front().accessory;
    box.state = agreed ? 1 : 0;
    box.action(box);
}

bool Operator::press(const std::string& button) {
    if (!isEnabled(button)) return false;
    const AlertDescription alert = std::move(_alerts.front());
    _alerts.pop_front();
    _bindings.pop_front();
    const auto index = std::ranges::find(alert.buttons, button) - alert.buttons.begin();
    if (alert.completion) alert.completion(kAlertFirstButton + static_cast<int>(index));
    return true;
}

void Application::terminate() {
    ++terminations;
    if (_delegate != nullptr) _delegate->applicationShouldTerminate();
}

// ---- lab ------------------------------------------------------------------------------------------------------------

struct Lab::LogLines {
    std::mutex mutex;
    std::vector<std::string> lines;
};

fs::path Lab::sampleArchive() {
    return ZUL_SAMPLE_ARCHIVE;
}

Lab::Lab(const fs::path& archiveFolder, std::shared_ptr<const FileReader> reader)
    : bundle({}, archiveFolder), archive(bundle, std::move(reader)), environment{.mainQueue = mainQueue,
                                                                                 .clock = clock,
                                                                                 .registry = registry,
                                                                                 .userDefaults = defaults,
                                                                                 .mainBundle = bundle,
                                                                                 .archive = archive,
                                                                                 .alerts = alertSwitch,
                                                                                 .application = application,
                                                                                 .events = nullptr,
                                                                                 .admittedProductIDs = {}},
      _log(std::make_shared<LogLines>()) {
    setSystemLogSink([log = _log](const std::string& text) {
        const std::scoped_lock lock(log->mutex);
        log->lines.push_back(text);
    });
    alertSwitch.to = &operatorDesk;
    HOLVEN_Log::setShouldLogToStdErr(false);
    TBPrinters::initialize(mainQueue);
    controller = std::make_shared<TBPrinters>(environment, TBPrinters::Outlets{});
    controller->init();
}

Lab::~Lab() {
    // Ends everything that a test left running: removes all services and lets the queues end.
    for (const ServiceToken token : registry.services()) registry.serviceTerminated(token);
    while (operatorDesk.waiting() > 0) static_cast<void>(operatorDesk.press(operatorDesk.buttons().front()));
    rest();
    bus.stop();
    controller->prepareForTermination();
    rest();
    controller.reset();
    operatorDesk = {};
    mainQueue.close();
    while (SerialQueue::liveThreads() > 0) std::this_thread::yield();
    setSystemLogSink(nullptr);
}

std::size_t Lab::attach(const std::string& description) {
    const auto parse = parseVirtualPrinter(description);
    REQUIRE_MESSAGE(parse.settings, parse.problem);
    return bus.add(*parse.settings);
}

void Lab::start() {
    REQUIRE(bus.start(registry) == kIOReturnSuccess);
    controller->awakeFromNib();
    controller->applicationDidFinishLaunching();
    rest();
}

bool Lab::rest(Clock::Duration limit) {
    return clock.drain(mainQueue, limit);
}

void Lab::advance(Clock::Duration span) {
    clock.advance(mainQueue, span);
}

void Lab::startWithVK14(const std::string& settings) {
    attach("VK14" + (settings.empty() ? "" : "," + settings));
    start();
    REQUIRE(rows() == 1);
    forgetWire();
}

void Lab::confirmUpdate(std::size_t row) {
    printer(row)->updateFirmware();
    rest();
    REQUIRE(operatorDesk.title() == "Attention:");
    operatorDesk.setAgreed(true);
    REQUIRE(operatorDesk.press("Continue"));
    rest();
    REQUIRE(operatorDesk.title() == "-- Warning --\n\nAre you certain you want to update the firmware?");
    REQUIRE(operatorDesk.press(operatorDesk.buttons().at(1)));
}

void Lab::update(std::size_t row) {
    confirmUpdate(row);
    rest();
}

std::shared_ptr<TBUSBPrinterZUL> Lab::printer(std::size_t row) const {
    const auto printers = controller->printers();
    REQUIRE(row < printers.size());
    return printers[row];
}

std::string Lab::infoText(const char* key, std::size_t row) const {
    return printer(row)->infoText(key).value_or("(none)");
}

std::int64_t Lab::progress(std::size_t row) const {
    return printer(row)->deviceInfoDict()->integer(HOLVEN_TBPrinterDeviceFirmwareStatus).value_or(0);
}

Wire Lab::wire(const std::string& serial) const {
    Wire wire;
    for (const VirtualJournalEntry& entry : journal->entries()) {
        if (!serial.empty() && entry.printer != serial) continue;
        if (entry.event == "command") wire.push_back(entry.command);
        if (entry.event == "arrive" || entry.event == "leave") wire.push_back(entry.event);
    }
    return wire;
}

int Lab::timesLogged(const std::string& part) const {
    const std::scoped_lock lock(_log->mutex);
    return static_cast<int>(std::ranges::count_if(
        _log->lines, [&](const std::string& line) { return line.find(part) != std::string::npos; }));
}

bool Lab::logged(const std::string& part) const {
    return timesLogged(part) > 0;
}

// ---- commands of a VK14 ---------------------------------------------------------------------------------------------

Wire attachWire() {
    return {"STATUS", "INFO  FVER", "MNT_RDCOUNTER_LIFE", "TBL_RDVersion", "MNT_RDCTRLD_CHKSUM", "INFO  SERIAL_NUMBER"};
}

Wire tablesWire() {
    Wire wire = {"TBL_CL", "TBL_RDVersion", "MNT_RDCTRLD_CHKSUM"};
    for (int table = 0; table < 2; ++table) {
        wire.insert(wire.end(), {"TBL_WTVersion", "TBL_WTCTRLD_UPDATE_CW", "TBL_RDVersion", "MNT_RDCTRLD_CHKSUM"});
    }
    return wire;
}

} // namespace zul
