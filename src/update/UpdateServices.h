// What the supervisor of updates gets from the program that owns it: queues, printers, locks, history, settings. Empty
// functions and null pointers are services that this program does not have.
#pragma once

#include "Classes/Outlets.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/FirmwareArchive.h"
#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "update/PrinterLocks.h"
#include "update/UpdateRecorder.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zul {

/// What the supervisor works with.
struct UpdateServices {
    MainQueue& mainQueue;
    Clock& clock;
    /// Shows alerts to the operator.
    AlertOutlet& alerts;
    /// Returns the attached printer objects with a key: none, one, or one for each printer interface of the device.
    std::function<std::vector<std::shared_ptr<TBUSBPrinterZUL>>(const std::string& key)> printersWithKey;
    /// While isKept is true, the bus keeps the interface of the printer at this location for this process, through
    /// closes and restarts. May be empty.
    std::function<void(std::uint32_t locationID, bool isKept)> setKept = {};
    /// Whether arrivals of printers are reported on this machine; empty: they are.
    std::function<bool()> seesArrivals = {};
    /// Reserves printers for the updates of this process; null: other processes are not considered.
    PrinterLocks* locks = nullptr;
    /// Returns the lock with which the operator has claimed this printer, and the update owns it from then on; nullopt
    /// if the printer is not claimed. May be empty.
    std::function<std::optional<PrinterLock>(const std::string& key)> takeClaim = {};
    /// Takes that lock back after the update, for a printer that is still claimed. May be empty.
    std::function<void(const std::string& key, PrinterLock lock)> returnClaim = {};
    /// Writes the history of updates; null: there is no history.
    UpdateRecorder* recorder = nullptr;
    /// The archive whose folder and file digests are recorded; null: they are not recorded.
    FirmwareArchive* archive = nullptr;
    /// Keeps the machine awake while isUnderWay is true. It is often called again with the same value. May be empty.
    std::function<void(bool isUnderWay)> keepAwake = {};
};

/// How long the supervisor waits.
struct UpdateSettings {
    /// Advice is due after this time without progress, instead of the longest time of each phase.
    std::optional<Clock::Duration> stallAfter = {};
    /// An update ends after this time without progress; nullopt: it stays open as long as the program runs.
    std::optional<Clock::Duration> giveUpAfter = {};
};

} // namespace zul
