// The application's delegate of the user-interface description. It holds the main window and leaves everything else to
// TBPrinters, which claims the delegate's role for itself. GUI thread.
#pragma once

#include <QMainWindow>
#include <QPointer>

namespace zul {

class AppDelegate {
  public:
    QPointer<QMainWindow> window; // weak: the window may go first

    /// Does nothing: the controller starts the application.
    void applicationDidFinishLaunching();
};

} // namespace zul
