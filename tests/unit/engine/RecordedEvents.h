// Records the events of printers.
#pragma once

#include "Classes/PrinterEvents.h"

#include <algorithm>
#include <mutex>
#include <vector>

namespace zul::test {

class RecordedEvents final : public PrinterEventsOutlet {
  public:
    void printerEvent(const PrinterEvent& event) override {
        const std::scoped_lock lock(_mutex);
        _events.push_back(event);
    }
    /// All events of one kind, in order.
    template <class Kind> std::vector<Kind> all() const {
        const std::scoped_lock lock(_mutex);
        std::vector<Kind> found;
        for (const PrinterEvent& event : _events) {
            if (const auto* const what = std::get_if<Kind>(&event.what)) found.push_back(*what);
        }
        return found;
    }
    template <class Kind> std::size_t count() const { return all<Kind>().size(); }

  private:
    mutable std::mutex _mutex;
    std::vector<PrinterEvent> _events;
};

} // namespace zul::test
