// The embedded printers of a run, made from the options of its command line. Main queue, before the session starts.
#pragma once

#include "platform/dispatch/Queue.h"
#include "session/SessionOptions.h"
#include "session/SessionProblem.h"
#include "virtual_printer/VirtualBus.h"

#include <memory>
#include <optional>

namespace zul {

/// Makes the bus with the printers that the options describe. Returns what is wrong with the options, or nullopt.
std::optional<SessionProblem> makeEmbeddedPrinters(const SessionOptions& options, MainQueue& mainQueue, Clock& clock,
                                                   std::unique_ptr<VirtualBus>& bus);

} // namespace zul
