// The printer as its collaborators see it: their events and log lines go through this interface. Any thread.
#pragma once

#include "Classes/PrinterEvents.h"

#include <string>

namespace zul {

class PrinterReporter {
  public:
    virtual ~PrinterReporter() = default;
    /// Passes an event of this printer to the environment's listener; no effect without one. Any thread.
    virtual void emit(PrinterEvent::What what) const = 0;
    /// Manufacturer, model and USB serial number, for every log line that names the printer. Any thread.
    virtual std::string descriptionUTF8() const = 0;
    /// Reports an internal error of the protocol by its number. Command queue. No effect unless overridden.
    virtual void reportInternalError(int /*number*/) {}
    /// Reports that the bus did not take a command. Command queue. No effect unless overridden.
    virtual void reportCommunicationError() {}
};

} // namespace zul
