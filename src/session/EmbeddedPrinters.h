// Creates the embedded printers of a run from its command line options. Main queue, before the session starts.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "session/SessionOptions.h"
#include "session/SessionProblem.h"
#include "virtual_printer/VirtualBus.h"

#include <memory>
#include <optional>

namespace zul {

/// Creates the bus with the printers that the options describe. Returns the problem of the options, or nullopt.
std::optional<SessionProblem> makeEmbeddedPrinters(const SessionOptions& options, MainQueue& mainQueue, Clock& clock,
                                                   std::unique_ptr<VirtualBus>& bus);

} // namespace zul
