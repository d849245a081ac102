// Decides on which thread a change notice has come. Called on the thread of the change, by the notice itself.
#include "ui/ChangeRelay.h"

#include "Classes/TBPrinters.h"

namespace zul::ui {

bool ChangeRelay::Observer::isOnMain() {
    return TBPrinters::isMainQueue();
}

} // namespace zul::ui
