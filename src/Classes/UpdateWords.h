// Where an update stands, in plain words in the operator's language. Shared by the command line and the window. Any
// thread.
#pragma once

#include "Classes/UpdateMonitor.h"

#include <optional>
#include <string>

namespace zul {

/// The name that progress lines and JSON use; never translated.
const char* nameOfPhase(UpdatePhase phase);
/// How long a phase usually takes; nothing where it depends on people or on the printer's condition.
std::optional<Clock::Duration> expectedDuration(UpdatePhase phase);

/// One line: "in the loader since 14 s, expected within 30 s".
std::string describeState(const UpdateState& state, Clock::TimePoint now);
/// What to do when nothing has been heard of the printer for long; names where it stands.
std::string adviceForStall(const UpdateState& state);
/// Why a finished update did not succeed; empty when it did.
std::string reasonOfFailure(const UpdateState& state);

} // namespace zul
