#include "ui/WindowApplication.h"

#include "Classes/TBPrinters.h"

namespace zul::ui {

void WindowApplication::terminate() {
    // The controller always answers "now": a printer in the middle of an update is not waited for.
    if (_delegate != nullptr) static_cast<void>(_delegate->applicationShouldTerminate());
    _end();
}

} // namespace zul::ui
