// Runs blocks apart from all queues, on threads of their own, and asks which process has reserved a printer. Called by
// devices and handles, any thread.
#include "usb/libusb/BusServices.h"

#include "platform/dispatch/Clock.h"
#include "platform/usb/PrinterReservations.h"

#include <optional>
#include <utility>

namespace zul {

void BusServices::runApart(Block block) const {
    // The queue object is destroyed here; its thread ends by itself after the block.
    SerialQueue("usb", clock()).async(std::move(block));
}

std::optional<InterfaceHolder> reservationElsewhere(const BusServices& services, const std::string& deviceKey) {
    PrinterReservations* const reservations = services.options.reservations;
    return reservations == nullptr ? std::nullopt : reservations->heldElsewhere(deviceKey);
}

} // namespace zul
