// The real USB bus: printers attached to this machine, through libusb and the system's device events.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/PrinterReservations.h"
#include "platform/usb/ServiceRegistry.h"
#include "usb/libusb/SystemFolders.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace zul {

/// Fixed for the life of the bus.
struct LibusbBusOptions {
    /// Which printers other processes of ours use: those are left alone. Must outlive the bus and its handles. May be
    /// null.
    PrinterReservations* reservations = nullptr;
    /// Which devices are our printers: their device IDs are read before they are announced, repeatedly for up to 3 s,
    /// and they are claimed at once where an update is under way. Null: none; the nodes of foreign printers are never
    /// opened. Main queue.
    std::function<bool(std::uint16_t vendor, std::uint16_t product)> readsIdentityAhead;
    SystemFolders system;
    /// False: as where the system refuses the kernel's own reports. They are used only where udevd does not run.
    bool takesKernelReports = true;
};

/// How arrivals and departures come to be known.
enum class ArrivalSight {
    no,       // not at all: the bus does not run
    byUdev,   // udevd reports them
    byKernel, // there is no udevd; the kernel reports that something has changed
    byRescan  // neither reports; the bus is looked at every 2 s
};

/// One service per printer-class interface number, whatever its subclass. All effects on the registry are made on the
/// main queue, in the order in which the system reported them: a departure always before the next arrival at the same
/// place. A printer whose device ID is read ahead may be announced after devices that arrived later. The queue must
/// outlive the bus; the clock every handle, and what is still under way after stop() for a few seconds.
class LibusbBus final : public USBBus {
  public:
    /// Opens nothing; start() does.
    LibusbBus(MainQueue& mainQueue, Clock& clock, LibusbBusOptions options = {});
    ~LibusbBus() override;

    /// Announces what is attached before it returns, our printers by their places, but for those of them that do not
    /// answer the request for their device ID within 100 ms: see whenEnumerated. A device that arrives later and whose
    /// node may not be opened yet is announced when it may, at the latest after 2 s. kIOReturnError when the system has
    /// no USB.
    IOReturn start(ServiceRegistry& registry) override;
    /// Main queue. No service is reported afterwards; handles keep working. Gives the printers that are not in the
    /// middle of a transfer back to the kernel's printer driver.
    void stop() override;

    /// How arrivals and departures are seen; settled by start(). Main queue.
    ArrivalSight seesArrivals() const;

    /// A printer that was attached at the start is not announced yet. Main queue.
    bool hasPending() const;
    /// Runs block once everything that was attached at the start is announced or has left, at the latest some 3 s after
    /// the start; at once when that is so already. Not run any more after stop(). Main queue.
    void whenEnumerated(Block block);

    /// "An update is under way at this location", across departures and arrivals, until kept is false again. Meanwhile
    /// the kernel's printer driver does not get the printer back; USBInterfaceClose ends the use of an interface but
    /// not its claim at the kernel, which the next open through this process takes over; and a printer of ours that
    /// arrives there is claimed as early as possible, before print services find it. Afterwards claims without a user
    /// are released and the kernel's driver gets the printer back a second later. Without effect while the bus does
    /// not run. Main queue.
    void setKept(std::uint32_t locationID, bool kept);

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
