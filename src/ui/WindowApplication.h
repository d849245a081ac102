// The application as the engine sees it: who decides about its end, and how it ends. GUI thread.
#pragma once

#include "Classes/Outlets.h"

#include <functional>
#include <string>

namespace zul::ui {

class WindowApplication final : public ApplicationOutlet {
  public:
    /// end leaves the event loop, and all loops inside it; dialogs have no say.
    explicit WindowApplication(std::function<void()> end) : _end(std::move(end)) {}

    void setDelegate(TBPrinters* delegate) override { _delegate = delegate; }
    /// A person has pressed "Quit" in one of the engine's alerts.
    void terminate() override;
    std::string processName() const override { return "ZUL Printer Utility"; }

    /// What a person's request leads to; without it the program ends at once.
    void setQuitAsked(std::function<void()> quitAsked) { _quitAsked = std::move(quitAsked); }
    /// Asks the controller, which always agrees, and ends the program.
    void endNow();
    TBPrinters* delegate() const { return _delegate; }

  private:
    const std::function<void()> _end;
    std::function<void()> _quitAsked;
    TBPrinters* _delegate = nullptr;
};

} // namespace zul::ui
