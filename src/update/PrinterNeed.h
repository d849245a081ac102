// What a printer needs, as the first thing that its row shows: one state of a closed list, with its words. The window
// and the command line show the same. Main queue.
#pragma once

#include "Classes/TBUSBPrinterZUL.h"

#include <optional>
#include <string>
#include <vector>

namespace zul {

class UpdateSupervisor;

/// In the order of the table that nameOfNeed() and wordFor() read.
enum class PrinterNeed {
    unknown,         // it has not reported its status and its version yet
    upToDate,        // firmware and color tables are those of the files
    updateAvailable, // the files have newer firmware or other color tables
    newerInstalled,  // the installed firmware is newer than that of the files
    updating,        // its update is open
    restarting,      // its update is open, and it is expected to leave and return
    interrupted,     // its last update is not complete, or it is in its loader
    notReady,        // its status keeps it from being updated: an open cover, no paper
    inUse,           // another process has it
    noPermission,    // this user may not open it
    notAnswering,    // it has to be switched off and on
    fileMissing,     // there is no firmware file for it, or no digest of the file
    fileDamaged,     // its firmware file cannot be read or is not the one that the digest is of
};
inline constexpr int kPrinterNeeds = static_cast<int>(PrinterNeed::fileDamaged) + 1;

/// What the state means for the operator, for colors and symbols.
enum class NeedTone {
    neutral,   // nothing to do, or not known yet
    good,      // nothing to do
    underWay,  // something can be done, or is being done
    attention, // somebody has to do something at the printer or on this machine
    failed     // an update has to be completed, or a file replaced
};

/// The state with its words.
struct NeedState {
    PrinterNeed need = PrinterNeed::unknown;
    std::string word;                 // "Update available"
    std::string detail;               // the reason or the next step; may be empty
    std::optional<double> share = {}; // of an open update, from 0 to 1
    bool operator==(const NeedState&) const = default;
};

/// The name in JSON ("updateState"); never translated.
const char* nameOfNeed(PrinterNeed need);
/// The word for the operator, in the operator's language.
std::string wordFor(PrinterNeed need);
/// The meaning of the state.
NeedTone toneOf(PrinterNeed need);
/// The state of an attached printer. It asks the printer nothing; the firmware files are checked as for its available
/// version.
NeedState needOf(const UpdateSupervisor& supervisor, TBUSBPrinterZUL& printer);
/// The same for a printer that has left in the middle of its update and is awaited; nullopt if it has no update that is
/// open and shown.
std::optional<NeedState> needOfAwaited(const UpdateSupervisor& supervisor, const std::string& key);
/// One line about many printers: "16 printers: 11 need an update, 3 are up to date, 2 need attention". Parts that would
/// be 0 are left out; empty without a printer.
std::string summaryOfNeeds(const std::vector<PrinterNeed>& needs);

} // namespace zul
