// The application's delegate of the user-interface description, without an action of its own: the controller starts the
// application. GUI thread; called by main.
#include "AppDelegate.h"

namespace zul {

void AppDelegate::applicationDidFinishLaunching() {}

} // namespace zul
