// A test bench for one printer object with a scripted handle. A printer whose device ID cannot be read has no queue, so
// all its work runs inline and a test reads from top to bottom; printerWithQueue() creates one with a queue.
#pragma once

#include "Classes/TBPrinters.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/FirmwareArchive.h"
#include "holven_log/HOLVEN_Log.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/UserDefaults.h"
#include "support/LogCapture.h"
#include "support/ScriptedInterface.h"
#include "support/SimulatedClock.h"
#include "support/TemporaryFolder.h"

#include <doctest/doctest.h>
#include <thread>

namespace zul::test {

class RecordedAlerts final : public AlertOutlet {
  public:
    std::vector<AlertDescription> shown;
    void beginAlert(AlertDescription alert) override { shown.push_back(std::move(alert)); }
};

class RecordedApplication final : public ApplicationOutlet {
  public:
    TBPrinters* delegate = nullptr;
    int terminations = 0;
    void setDelegate(TBPrinters* newDelegate) override { delegate = newDelegate; }
    void terminate() override { ++terminations; }
    std::string processName() const override { return "ZUL Printer Utility"; }
};

/// Counts the notices of one object by key.
class Notices final : public KeyValueObserver {
  public:
    std::map<std::string, int> count;
    void observeValueForKeyPath(const std::string& keyPath, KeyValueObservable& /*object*/,
                                void* /*context*/) override {
        ++count[keyPath];
    }
};

class PrinterBench {
  public:
    PrinterBench()
        : environment{.mainQueue = mainQueue,
                      .clock = clock,
                      .registry = registry,
                      .userDefaults = defaults,
                      .mainBundle = bundle,
                      .archive = firmwareArchive,
                      .alerts = alerts,
                      .application = application,
                      .events = nullptr,
                      .admittedProductIDs = {}} {
        HOLVEN_Log::setShouldLogToStdErr(false);
        TBPrinters::initialize(mainQueue);
    }
    ~PrinterBench() {
        settle();
        printer.reset();
        mainQueue.close();
        while (SerialQueue::liveThreads() > 0) std::this_thread::yield();
    }

    /// A printer of the product, without a queue.
    std::shared_ptr<TBUSBPrinterZUL> inlinePrinter(std::uint16_t product = 3) {
        handle->product = product;
        handle->answerByDefault();
        printer = std::make_shared<TBUSBPrinterZUL>(environment);
        printer->initWithInterfaceInterface(handle, 7);
        handle->clearJournal();
        return printer;
    }
    /// The same with an open interface.
    std::shared_ptr<TBUSBPrinterZUL> openPrinter(std::uint16_t product = 3) {
        inlinePrinter(product);
        CHECK(printer->openInterface() == kIOReturnSuccess);
        handle->clearJournal();
        return printer;
    }
    /// A printer that reports its device ID and so has a queue.
    std::shared_ptr<TBUSBPrinterZUL> printerWithQueue(const std::string& deviceID = "MFG:ZUL;MDL:VK14;SERN:1;") {
        handle->setDeviceID(deviceID);
        handle->answerByDefault();
        printer = std::make_shared<TBUSBPrinterZUL>(environment);
        printer->initWithInterfaceInterface(handle, 7);
        settle();
        return printer;
    }
    void settle() { clock.drain(mainQueue); }
    void reply(const std::string& body) {
        handle->enqueueRead(dataFromText(eightDigits(body.size())));
        handle->enqueueRead(dataFromText(body));
    }
    static std::string eightDigits(std::size_t number) {
        const std::string digits = std::to_string(number);
        return std::string(8 - digits.size(), '0') + digits;
    }
    /// Texts of the commands written so far.
    std::vector<std::string> commands() const {
        std::vector<std::string> texts;
        for (const JournalEntry& entry : handle->journal()) {
            if (entry.call != "WritePipeTO") continue;
            std::string text(entry.data.begin() + 2, entry.data.begin() + 24);
            text.resize(text.find_last_not_of(' ') + 1);
            texts.push_back(text);
        }
        return texts;
    }
    std::vector<Data> frames() const {
        std::vector<Data> written;
        for (const JournalEntry& entry : handle->journal()) {
            if (entry.call == "WritePipeTO") written.push_back(entry.data);
        }
        return written;
    }

    LogCapture log;
    SimulatedClock clock;
    MainQueue mainQueue{clock};
    ServiceRegistry registry;
    UserDefaults defaults;
    TemporaryFolder archive;
    Bundle bundle{{}, archive.path};
    FirmwareArchive firmwareArchive{bundle};
    RecordedAlerts alerts;
    RecordedApplication application;
    Environment environment;
    std::shared_ptr<ScriptedInterface> handle = std::make_shared<ScriptedInterface>();
    std::shared_ptr<TBUSBPrinterZUL> printer;
};

} // namespace zul::test
