#include "ui/ChangeRelay.h"

#include "Classes/TBPrinters.h"

namespace zul::ui {

bool ChangeRelay::Observer::isOnMain() {
    return TBPrinters::isMainQueue();
}

} // namespace zul::ui
