// The application as the engine sees it: its name, and how it ends. GUI thread, which is the main queue's.
#pragma once

#include "Classes/Outlets.h"

#include <functional>
#include <string>
#include <utility>

namespace zul::ui {

class WindowApplication final : public ApplicationOutlet {
  public:
    /// end: leaves the event loop and all nested loops; open dialogs cannot prevent that.
    explicit WindowApplication(std::function<void()> end) : _end(std::move(end)) {}

    /// Sets the object that is asked before the end; null for none.
    void setDelegate(TBPrinters* delegate) override { _delegate = delegate; }
    /// Ends the program on the operator's request in one of the engine's alerts: calls what setQuitAsked has set.
    void terminate() override;
    /// The name of the program for menus and titles.
    std::string processName() const override { return "ZUL Printer Utility"; }

    /// Sets what is called on the operator's request to end the program; without it the program ends at once.
    void setQuitAsked(std::function<void()> quitAsked) { _quitAsked = std::move(quitAsked); }
    /// Ends the program at once, after asking the delegate, which always agrees.
    void endNow();
    /// The object that is asked before the end; null for none.
    TBPrinters* delegate() const { return _delegate; }

  private:
    const std::function<void()> _end;
    std::function<void()> _quitAsked;
    TBPrinters* _delegate = nullptr;
};

} // namespace zul::ui
