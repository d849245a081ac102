// Where an update is and what to do, in plain sentences in the operator's language. Shared by the command line and the
// window. No return codes: those are for the log and for JSON. Any thread.
#pragma once

#include "update/UpdateState.h"
#include "update/UpdateVerdict.h"

#include <optional>
#include <string>

namespace zul {

class TBUSBPrinterZUL;

/// The serial number as the printer answered; empty if it did not.
std::string serialNumberOf(const TBUSBPrinterZUL& printer);

/// What past updates of the model have shown: the usual duration of a phase, where it is known.
using UsualDurations = std::map<UpdatePhase, Clock::Duration>;

/// How long the phase usually takes: what past updates have shown, else the table's; nullopt if it depends on people or
/// on the printer's condition.
std::optional<Clock::Duration> usualDuration(UpdatePhase phase, const UsualDurations& learned);
/// After how long advice is due; nullopt if the phase may take any time.
std::optional<Clock::Duration> longestDuration(UpdatePhase phase, const UsualDurations& learned);

/// One line: "in the loader (14 s, usually done within 30 s)".
std::string describeState(const UpdateState& state, Clock::TimePoint now, const UsualDurations& learned = {});
/// What to do about a printer that gives no sign of life for longer than usual, or that needs somebody.
std::string adviceFor(const UpdateState& state);
/// What to do about a printer that answers and takes longer than usual.
std::string adviceForDelay(const UpdateState& state);
/// Who uses the printer: "another program uses the printer (ipp, process 812)".
std::string describeHolder(const InterfaceHolder& holder);
/// What to do about it, in whole sentences: never to close a program that updates the printer.
std::string adviceForHolder(const InterfaceHolder& holder);
/// What a failed transfer means, in plain words.
std::string describeFailure(IOReturn code);
/// Why an update ended with this result; empty for a success. Does not end with a full stop.
std::string reasonFor(UpdateResult result, const UpdateState& state, const UpdateExpectation& expectation);
/// What to do after an update has ended with this result; empty if there is nothing to do.
std::string adviceAfter(UpdateResult result, const UpdateState& state);

} // namespace zul
