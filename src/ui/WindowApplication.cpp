// How the window's program ends: the engine's alerts and the user's request come together here.
// GUI thread; called by the engine's alerts and by MainWindow.
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
    // The delegate always answers "now": this does not wait for updates.
    if (_delegate != nullptr) static_cast<void>(_delegate->applicationShouldTerminate());
    _end();
}

} // namespace zul::ui
