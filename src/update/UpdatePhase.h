// The phases of an update, one row of facts each. Any thread.
#pragma once

#include "platform/dispatch/Clock.h"

#include <string_view>

namespace zul {

enum class UpdatePhase {
    checking,       // archive, questions, readiness
    enteringLoader, // the command is sent; the printer has not left yet
    loaderAway,     // it has left and should come back as its loader
    loaderBack,     // it is back and is being asked
    writing,        // the image is being written
    cutOff,         // it left in the middle of the image
    programming,    // all bytes are there; the printer programs its flash and will leave
    restarting,     // it has left and should come back with the new firmware
    restarted,      // it is back and is being asked; its tables follow once it is idle
    backInLoader,   // it is back, but as its loader: the image was not taken
    colorTables,    // table n of m
    done,           // the engine has reported
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

struct PhaseRow {
    UpdatePhase phase;
    UpdateStep step;
    const char* name;      // in progress lines and JSON; never translated
    const char* text;      // for the operator, to be looked up
    int usualSeconds;      // what it usually takes; 0: that depends on people or on the printer's condition
    int longestSeconds;    // what it takes at the longest; then advice is due
    int weight;            // share of the whole update, for a progress bar
    bool mustNotBeStopped; // a program that ended here would leave the printer without working firmware or tables
    const char* advice;    // what the operator should do if the phase takes longer; to be looked up
};

const PhaseRow& phaseRow(UpdatePhase phase);
/// The row with this name; null if there is none: names also come from other processes and from the history.
const PhaseRow* phaseRowNamed(std::string_view name);

inline constexpr int kUpdatePhases = static_cast<int>(UpdatePhase::done) + 1;
inline constexpr int kUpdateSteps = static_cast<int>(UpdateStep::done) + 1;

/// The part of the whole update that lies before this phase, from 0 to 1.
double shareBefore(UpdatePhase phase);
/// The part of the whole update that this phase is, from 0 to 1.
double shareOf(UpdatePhase phase);

} // namespace zul
