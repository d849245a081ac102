// The step of an update that an operator sees as the current one. Pure function, any thread.
#pragma once

#include "update/UpdateVerdict.h"

namespace zul {

/// The step that the update is at or, once it is judged, the step that it did not get through.
UpdateStep stepOf(const UpdateState& state, const UpdateVerdict& verdict);

} // namespace zul
