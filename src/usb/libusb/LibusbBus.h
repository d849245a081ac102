// The real USB bus: printers attached to this machine, through libusb and the system's device events.
#pragma once

#include "platform/dispatch/Queue.h"
#include "platform/usb/ServiceRegistry.h"

#include <cstdint>
#include <memory>

namespace zul {

struct LibusbBusOptions {
    bool libusbDebug = false; // libusb's own messages on standard error
};

/// One service per printer-class interface number, whatever its subclass. All effects on the registry are made on the
/// main queue, in the order in which the system told of them. The queue must outlive the bus, the clock every handle.
class LibusbBus final : public USBBus {
  public:
    LibusbBus(MainQueue& mainQueue, Clock& clock, LibusbBusOptions options = {});
    ~LibusbBus() override;

    /// Announces what is attached before it returns. A device that arrives later and whose node may not be opened yet
    /// is announced when it may, at the latest after 2 s. kIOReturnError when the system has no USB or tells of no
    /// device events.
    IOReturn start(ServiceRegistry& registry) override;
    /// Main queue. Nothing is reported afterwards; handles go on working. Gives the printers that are not in the middle
    /// of a transfer back to the kernel's printer driver, as the last handle of a printer does when it goes.
    void stop() override;

    /// While a printer is expected to restart, letting go of its handles does not give it to the kernel's printer
    /// driver, which would question it and could hold it when it is needed again. Ends by itself when the device at
    /// that location leaves. A re-enumeration asked for through a handle needs no call. Main queue.
    void setRestartExpected(std::uint32_t locationID, bool expected);

    /// libusb sessions not yet ended, in the whole process: a stopped bus leaves its session to its handles and to its
    /// event thread. For tests and soak runs.
    static int liveSessions();

  private:
    friend struct LibusbBusProbe; // tests hand in events that the system gives only by chance
    class Core;
    MainQueue& _mainQueue;
    Clock& _clock;
    const LibusbBusOptions _options;
    std::shared_ptr<Core> _core; // null while stopped
};

} // namespace zul
