// A printer as the parts that it is made of see it: what they report goes through it. Any thread.
#pragma once

#include "Classes/PrinterEvents.h"

#include <string>

namespace zul {

class PrinterReporter {
  public:
    virtual ~PrinterReporter() = default;
    /// Reports what has happened to whoever follows the printers. Any thread.
    virtual void emit(PrinterEvent::What what) const = 0;
    /// Manufacturer, model and USB serial number, for every log line that names the printer. Any thread.
    virtual std::string descriptionUTF8() const = 0;
    /// Reports an internal error of the protocol by its number. Command queue. No effect unless overridden.
    virtual void reportInternalError(int /*number*/) {}
    /// Reports that the bus did not take a command. Command queue. No effect unless overridden.
    virtual void reportCommunicationError() {}
};

} // namespace zul
