// What is done with one of our printers before it is announced: it is claimed where an update is under way, and its
// device IDs are read, because the engine asks for each only once.
#pragma once

#include "usb/libusb/AttachedDevice.h"
#include "usb/libusb/Attachment.h"

namespace zul {

/// Only the printers that the bus's user named are prepared; the nodes of others are never opened. Main queue.
bool wantsPreparation(const AttachedDevice& device);

/// Takes up to 3 s for a printer that does not answer, and less once it has left. Leaves a printer alone that another
/// process of ours has reserved, or whose node may not be opened. On a thread of its own.
void prepareArrival(Attachment& attachment);

} // namespace zul
