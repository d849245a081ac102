// A bench for journeys: the engine, embedded printers, an operator who answers alerts, and a clock moved by hand. The
// vocabulary of the tests; what it hides is plumbing only.
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

/// Keeps the alerts until the test answers them.
class Operator final : public AlertOutlet {
  public:
    void beginAlert(AlertDescription alert) override;

    /// Title of the alert that stands first; empty when none does.
    std::string title() const;
    std::string message() const;
    std::vector<std::string> buttons() const;
    std::size_t waiting() const { return _alerts.size(); }
    const AlertDescription& alert() const { return _alerts.front(); }
    bool isEnabled(const std::string& button) const;
    void setAgreed(bool agreed);
    /// Presses a button of the first alert. False when there is no such button or it is not enabled.
    [[nodiscard]] bool press(const std::string& button);
    /// Titles of all alerts that were ever shown, in order.
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

/// Leads the engine's alerts to the operator, or to the supervisor of updates on their way there.
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

/// Commands and where the printer left or came, as one list: "STATUS", "INFO  FVER", "leave", "arrive".
using Wire = std::vector<std::string>;

class Lab {
  public:
    /// archiveFolder: the firmware files; reader: how they are read, null for as they are.
    explicit Lab(const std::filesystem::path& archiveFolder = sampleArchive(),
                 std::shared_ptr<const FileReader> reader = nullptr);
    ~Lab();

    static std::filesystem::path sampleArchive();

    /// Adds a printer; see the settings of virtual printers. Before or after start().
    std::size_t attach(const std::string& description);
    /// The controller starts and finds what is attached; everything comes to rest.
    void start();
    /// Lets everything come to rest, at most for this long. True when nothing waits for time any more.
    bool rest(Clock::Duration limit = std::chrono::minutes(10));
    void advance(Clock::Duration span);
    /// start() with one VK14 that has been asked for its facts.
    void startWithVK14(const std::string& settings = {});
    /// Operator's part of an update up to and including the last confirmation.
    void confirmUpdate(std::size_t row = 0);
    /// The whole of it, up to the report.
    void update(std::size_t row = 0);

    std::shared_ptr<TBUSBPrinterZUL> printer(std::size_t row = 0) const;
    std::size_t rows() const { return controller->printers().size(); }
    std::string fact(const char* key, std::size_t row = 0) const;
    /// deviceFirmwareStatus as the row's object has it; 0 when absent.
    std::int64_t progress(std::size_t row = 0) const;

    /// What the printers saw since the last call of forgetWire().
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

// The commands of the steps that every journey is made of, for a VK14.
Wire attachWire();
Wire tablesWire();

} // namespace zul
