// Passes change notices from the printers' queues to the GUI thread, and those of the GUI thread on directly.
// Called on the thread of the change, by the notice itself.
#include "ui/ChangeRelay.h"

#include "Classes/TBPrinters.h"

namespace zul::ui {

bool ChangeRelay::Observer::isOnMain() {
    return TBPrinters::isMainQueue();
}

} // namespace zul::ui
