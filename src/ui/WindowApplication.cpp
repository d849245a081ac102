// How the window's program ends. GUI thread.
#include "ui/WindowApplication.h"

#include "Classes/TBPrinters.h"

namespace zul::ui {

void WindowApplication::terminate() {
    if (_quitAsked) {
        _quitAsked();
    } else {
        endNow();
    }
}

void WindowApplication::endNow() {
    // The controller always answers "now": a printer in the middle of an update is not waited for here.
    if (_delegate != nullptr) static_cast<void>(_delegate->applicationShouldTerminate());
    _end();
}

} // namespace zul::ui
