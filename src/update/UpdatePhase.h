// The phases of an update, and the table of their texts, durations and weights. Any thread.
#pragma once

#include <string_view>

namespace zul {

/// In the order of a successful update, with the two phases of a failure (cutOff, backInLoader) in between.
enum class UpdatePhase {
    checking,       // the firmware files and the printer are checked, the operator is asked
    enteringLoader, // the command is sent; the printer has not left yet
    loaderAway,     // it has left and should come back as its loader
    loaderBack,     // it is back and is being queried
    writing,        // the image is being written
    cutOff,         // it left in the middle of the image
    programming,    // all bytes are sent; the printer programs its flash and will leave
    restarting,     // it has left and should come back with the new firmware
    restarted,      // it is back and is being queried; its tables are written once it is idle
    backInLoader,   // it is back, but as its loader: it did not take the image
    colorTables,    // table n of m is being written
    done,           // the engine has reported the end
};

/// The steps that an operator sees.
enum class UpdateStep {
    checking,
    enteringLoader,
    restartingIntoLoader,
    writingFirmware,
    restartingIntoFirmware,
    writingTables,
    done
};

/// One row of the table.
struct PhaseRow {
    UpdatePhase phase;
    UpdateStep step;
    const char* name;      // in progress lines and JSON; never translated
    const char* text;      // for the operator, to be translated
    int usualSeconds;      // usual duration; 0: it depends on people or on the printer's condition
    int longestSeconds;    // after this time advice is due; 0: never
    int weight;            // share of the whole update, for a progress bar
    bool mustNotBeStopped; // a program that ended here would leave the printer without working firmware or tables
    const char* advice;    // what the operator should do if the phase takes longer; to be translated
};

/// The row of a phase.
const PhaseRow& phaseRow(UpdatePhase phase);
/// The row with this name; null if there is none: names also come from other processes and from the history.
const PhaseRow* phaseRowNamed(std::string_view name);

// How many there are; done is the last of both.
inline constexpr int kUpdatePhases = static_cast<int>(UpdatePhase::done) + 1;
inline constexpr int kUpdateSteps = static_cast<int>(UpdateStep::done) + 1;

/// The share of the whole update that is before this phase, from 0 to 1.
double shareBefore(UpdatePhase phase);
/// The share of this phase in the whole update, from 0 to 1.
double shareOf(UpdatePhase phase);

} // namespace zul
