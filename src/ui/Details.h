// Everything that is known about one printer, as lines for the operator. GUI thread, which is the main queue's: the
// details pane and the report read the same lines.
#pragma once

#include "Classes/TBUSBPrinterZUL.h"

#include <QString>
#include <vector>

namespace zul::ui {

/// One line: what it is about, and its value as text; both in the operator's language.
struct Detail {
    QString label;
    QString value;
    bool operator==(const Detail&) const = default;
};

/// All that is known about the printer, in reading order; what is unknown is left out. Reads the printer's device info
/// and checks the firmware files again if that is due.
std::vector<Detail> detailsOf(TBUSBPrinterZUL& printer);

} // namespace zul::ui
