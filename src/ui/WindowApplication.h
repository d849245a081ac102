// The application as the engine sees it: who decides about its end, and how it ends. GUI thread.
#pragma once

#include "platform/appkit/Outlets.h"

#include <functional>
#include <string>

namespace zul::ui {

class WindowApplication final : public ApplicationOutlet {
  public:
    /// end leaves the event loop, and all loops inside it; dialogs have no say.
    explicit WindowApplication(std::function<void()> end) : _end(std::move(end)) {}

    void setDelegate(TBPrinters* delegate) override { _delegate = delegate; }
    void terminate() override;
    std::string processName() const override { return "ZUL Printer Utility"; }
    TBPrinters* delegate() const { return _delegate; }

  private:
    const std::function<void()> _end;
    TBPrinters* _delegate = nullptr;
};

} // namespace zul::ui
