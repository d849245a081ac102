// A test lab for whole scenarios: the engine, embedded printers, an operator who answers alerts, and a simulated clock.
#pragma once

#include "Classes/Environment.h"
#include "Classes/TBPrinters.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/FirmwareArchive.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/UserDefaults.h"
#include "support/ChangedArchive.h"
#include "support/SimulatedClock.h"
#include "virtual_printer/VirtualBus.h"

#include <deque>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace zul {

/// Stores alerts until the test answers them.
class Operator final : public AlertOutlet {
  public:
    void beginAlert(AlertDescription alert) override;

    /// Title of the first alert; empty if there is none.
    std::string title() const;
    std::string message() const;
    std::vector<std::string> buttons() const;
    std::size_t waiting() const { return _alerts.size(); }
    const AlertDescription& alert() const { return _alerts.front(); }
    bool isEnabled(const std::string& button) const;
    void setAgreed(bool agreed);
    /// Presses a button of the first alert. False if the button does not exist or is disabled.
    [[nodiscard]] bool press(const std::string& button);
    /// Titles of all alerts shown so far, in order.
    const std::vector<std::string>& history() const { return _history; }

  private:
    struct Binding final : AlertLayout {
        std::size_t count = 0;
        std::map<std::size_t, std::function<bool()>> enabled;
        std::size_t buttonCount() const override { return count; }
        void bindButtonEnabled(std::size_t button, const std::shared_ptr<KeyValueObservable>& object,
                               const std::string& keyPath, std::function<bool()> isEnabled) override;
    };
    std::deque<AlertDescription> _alerts;
    std::deque<Binding> _bindings;
    std::vector<std::string> _history;
};

/// Passes the engine's alerts to the operator, directly or through the supervisor of updates.
class AlertSwitch final : public AlertOutlet {
  public:
    AlertOutlet* to = nullptr;
    void beginAlert(AlertDescription alert) override { to->beginAlert(std::move(alert)); }
};

class Application final : public ApplicationOutlet {
  public:
    void setDelegate(TBPrinters* delegate) override { _delegate = delegate; }
    void terminate() override;
    std::string processName() const override { return "ZUL Printer Utility"; }
    int terminations = 0;

  private:
    TBPrinters* _delegate = nullptr;
};

/// Commands, departures and arrivals as one list: "STATUS", "INFO  FVER", "leave", "arrive".
using Wire = std::vector<std::string>;

class Lab {
  public:
    /// archiveFolder: the firmware files; reader: null for real reading.
    explicit Lab(const std::filesystem::path& archiveFolder = sampleArchive(),
                 std::shared_ptr<const FileReader> reader = nullptr);
    ~Lab();

    static std::filesystem::path sampleArchive();

    /// Adds a printer with the settings of a virtual printer. Before or after start().
    std::size_t attach(const std::string& description);
    /// Starts the controller, enumerates the attached printers and waits until all queues are idle.
    void start();
    /// Runs until all queues are idle, for at most limit. True if no wait or timer is left.
    bool rest(Clock::Duration limit = std::chrono::minutes(10));
    void advance(Clock::Duration span);
    /// start() with one VK14 whose queries have ended.
    void startWithVK14(const std::string& settings = {});
    /// The operator's answers of an update, including the last confirmation.
    void confirmUpdate(std::size_t row = 0);
    /// A whole update up to the report.
    void update(std::size_t row = 0);

    std::shared_ptr<TBUSBPrinterZUL> printer(std::size_t row = 0) const;
    std::size_t rows() const { return controller->printers().size(); }
    std::string infoText(const char* key, std::size_t row = 0) const;
    /// The deviceFirmwareStatus of the row's printer; 0 if absent.
    std::int64_t progress(std::size_t row = 0) const;

    /// The commands and events since the last forgetWire().
    Wire wire(const std::string& serial = {}) const;
    void forgetWire() { journal->clear(); }
    bool logged(const std::string& part) const;
    int timesLogged(const std::string& part) const;

    SimulatedClock clock;
    MainQueue mainQueue{clock};
    ServiceRegistry registry;
    UserDefaults defaults;
    Bundle bundle;
    FirmwareArchive archive;
    Operator operatorDesk;
    AlertSwitch alertSwitch;
    Application application;
    std::shared_ptr<VirtualJournal> journal = std::make_shared<VirtualJournal>(clock);
    VirtualBus bus{mainQueue, clock, journal};
    Environment environment;
    std::shared_ptr<TBPrinters> controller;

  private:
    struct LogLines;
    std::shared_ptr<LogLines> _log;
};

/// The sample archive with some files changed.
struct ChangedSamples : ChangedArchive {
    ChangedSamples() : ChangedArchive(Lab::sampleArchive()) {}
};

// The commands of the steps that every scenario contains, for a VK14.
Wire attachWire();
Wire tablesWire();

} // namespace zul
