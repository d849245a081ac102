// A bus of virtual printers in this process, without hardware. It implements the interfaces of the real bus. Printers
// are added, plugged and unplugged on the main queue; their handles are used on the printers' command queues. Restarts,
// late replies and slow flash memory take their time on the injected clock.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/ServiceRegistry.h"
#include "virtual_printer/VirtualJournal.h"
#include "virtual_printer/VirtualPrinter.h"
#include "virtual_printer/VirtualPrinterSettings.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace zul {

class VirtualPort;

class VirtualBus final : public USBBus {
  public:
    /// Without printers, and not started. Queue and clock must outlive the bus; the journal is shared with its
    /// printers.
    VirtualBus(MainQueue& mainQueue, Clock& clock, std::shared_ptr<VirtualJournal> journal);
    ~VirtualBus() override;

    using Location = std::pair<std::uint8_t, std::uint8_t>; // bus, port
    /// The first port that is not in taken. Any thread.
    static Location firstFreeLocation(const std::set<Location>& taken);

    /// Adds a printer at the location of its settings, or at the first free port. It is attached at once if the bus was
    /// started, otherwise by start(). Returns its number, from 0. Main queue.
    std::size_t add(const VirtualPrinterSettings& settings);
    /// Unplugs or plugs a printer. Unplugging a detached printer or plugging an attached one has no effect. Main queue.
    void unplug(std::size_t printer);
    void plug(std::size_t printer);
    /// Simulates another program that claims the printer, or releases it. Main queue.
    void setHeldByOther(std::size_t printer, bool isHeld);

    /// Calls inspect with the printer while no other thread uses it. inspect must be short. Any thread.
    void inspect(std::size_t printer, const std::function<void(const VirtualPrinter&)>& inspect);

    /// Attaches all printers that were added; always succeeds. Main queue.
    IOReturn start(ServiceRegistry& registry) override;
    /// Announces no departures: the registry is not used afterwards. Main queue.
    void stop() override;

  private:
    MainQueue& _mainQueue;
    Clock& _clock;
    const std::shared_ptr<VirtualJournal> _journal;
    ServiceRegistry* _registry = nullptr;
    std::vector<std::shared_ptr<VirtualPort>> _ports;
};

} // namespace zul
