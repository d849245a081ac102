// The state of an update and what to do, in plain sentences in the operator's language. Used by the command line and
// the window. No return codes: those are for the log and for JSON. Any thread.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/PrinterReservations.h"
#include "update/UpdatePhase.h"
#include "update/UpdateState.h"
#include "update/UpdateVerdict.h"

#include <map>
#include <optional>
#include <string>

namespace zul {

class TBUSBPrinterZUL;

/// The serial number that the printer reported; empty if it reported none.
std::string serialNumberOf(const TBUSBPrinterZUL& printer);

/// The usual durations of phases according to past updates of a model; without the phases of which too few are known.
using UsualDurations = std::map<UpdatePhase, Clock::Duration>;

/// How long the phase usually takes: the learned duration, else that of the phase table. nullopt if it depends on
/// people or on the printer's condition.
std::optional<Clock::Duration> usualDuration(UpdatePhase phase, const UsualDurations& learned);
/// After how long advice is due; nullopt if the phase may take any time.
std::optional<Clock::Duration> longestDuration(UpdatePhase phase, const UsualDurations& learned);

/// One line: "in the loader (14 s, usually done within 30 s)".
std::string describeState(const UpdateState& state, Clock::TimePoint now, const UsualDurations& learned = {});
/// What to do about a printer that gives no sign of life for longer than usual, or that waits for the operator; empty
/// if no action is needed.
std::string adviceFor(const UpdateState& state);
/// What to do about a printer that replies and takes longer than usual.
std::string adviceForDelay(const UpdateState& state);
/// The process that uses the printer: "another program uses the printer (ipp, process 812)".
std::string describeHolder(const InterfaceHolder& holder);
/// What to do about it, in whole sentences: never to close a program that updates the printer.
std::string adviceForHolder(const InterfaceHolder& holder);
/// What the result of a failed transfer means.
std::string describeFailure(IOReturn code);
/// Why an update ended with this result; empty for a success. Does not end with a full stop.
std::string reasonFor(UpdateResult result, const UpdateState& state, const UpdateExpectation& expectation);
/// What to do after an update has ended with this result; empty if no action is needed.
std::string adviceAfter(UpdateResult result, const UpdateState& state);

} // namespace zul
