// The step of an update that an operator sees as the current one. Pure function, any thread.
#pragma once

#include "update/UpdatePhase.h"
#include "update/UpdateState.h"
#include "update/UpdateVerdict.h"

namespace zul {

/// The current step of an update; once it is judged, the step that it did not complete.
UpdateStep stepOf(const UpdateState& state, const UpdateVerdict& verdict);

} // namespace zul
