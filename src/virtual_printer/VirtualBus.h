// The embedded printers as a bus: in this process, without hardware, through the same seam as the real one. Printers
// are added, plugged and unplugged on the main queue; their handles are used on the printers' queues. Restarts, late
// answers and slow flashes take their time on the injected clock.
#pragma once

#include "platform/dispatch/Queue.h"
#include "platform/usb/ServiceRegistry.h"
#include "virtual_printer/VirtualJournal.h"
#include "virtual_printer/VirtualPrinter.h"

#include <functional>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace zul {

class VirtualPort;

class VirtualBus final : public USBBus {
  public:
    VirtualBus(MainQueue& mainQueue, Clock& clock, std::shared_ptr<VirtualJournal> journal);
    ~VirtualBus() override;

    using Location = std::pair<std::uint8_t, std::uint8_t>; // bus, port
    /// The first port that is not taken. Any thread.
    static Location firstFreeLocation(const std::set<Location>& taken);

    /// Attaches a printer: at once when the bus has been started, else with its start. Returns its number, from 0. It
    /// gets the location of its settings, or the first port that is free. Main queue.
    std::size_t add(const VirtualPrinterSettings& settings);
    /// Main queue. Unplugging a printer that is away, or plugging one that is attached, has no effect.
    void unplug(std::size_t printer);
    void plug(std::size_t printer);
    /// Another program takes the interface, or releases it. Main queue.
    void setHeldByOther(std::size_t printer, bool isHeld);

    /// Calls inspect with the printer while no other thread uses it. Any thread; inspect must be brief.
    void inspect(std::size_t printer, const std::function<void(const VirtualPrinter&)>& inspect);

    IOReturn start(ServiceRegistry& registry) override;
    void stop() override;

  private:
    MainQueue& _mainQueue;
    Clock& _clock;
    const std::shared_ptr<VirtualJournal> _journal;
    ServiceRegistry* _registry = nullptr;
    std::vector<std::shared_ptr<VirtualPort>> _ports;
};

} // namespace zul
