#include "AppDelegate.h"

namespace zul {

void AppDelegate::applicationDidFinishLaunching() {}

} // namespace zul
