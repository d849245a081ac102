// The subject of an alert, set where the alert is made, so that no code needs to compare its texts. Any thread.
#pragma once

namespace zul {

enum class AlertKind {
    other,        // asks no question
    agreement,    // "I Agree" before every update
    corruption,   // the firmware files are damaged; at the start of an update its button ends the application
    notNeeded,    // the installed firmware is newer
    notReady,     // the printer's status keeps it from being updated
    busy,         // another program holds the printer
    printerError, // the printer could not be opened
    confirmation, // the last question before the update
    damagedFile,  // the firmware files are damaged while the printer is in its loader
    success,      // the engine's report of an update
    problem,      // the same, without any colour table
    loaderFound,  // a printer was found in its loader although this program did not put it there
    loaderLeft,   // advice after "Ignore" to that
    powerCycle,   // the USB serial-number setting takes effect at the next power-up
    printerBusy,  // the setting could not be changed
    verdict,      // the result of an update as the supervisor judges it, where the engine's report differs
};

} // namespace zul
