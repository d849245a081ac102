// Blocks that run apart from all queues, on threads of their own, and the question who has reserved a printer. Called
// by devices and handles, any thread.
#include "usb/libusb/BusServices.h"

#include "platform/dispatch/Clock.h"
#include "platform/usb/PrinterReservations.h"

#include <optional>
#include <utility>

namespace zul {

void BusServices::runApart(Block block) const {
    // The queue's thread outlives the queue object by what it has to do.
    SerialQueue("usb", clock()).async(std::move(block));
}

std::optional<InterfaceHolder> reservationElsewhere(const BusServices& services, const std::string& deviceKey) {
    PrinterReservations* const reservations = services.options.reservations;
    return reservations == nullptr ? std::nullopt : reservations->heldElsewhere(deviceKey);
}

} // namespace zul
