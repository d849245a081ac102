// Prepares one of our printers before it is announced: claims it where an update is under way, and reads its device
// IDs, because the engine requests each only once.
#pragma once

#include "usb/libusb/AttachedDevice.h"
#include "usb/libusb/Attachment.h"

namespace zul {

/// Only the printers that the bus's user named are prepared; the nodes of others are never opened. Main queue.
bool wantsPreparation(const AttachedDevice& device);

/// Takes up to 3 s for a printer that does not answer, and less once it has left. Sends nothing to a printer that
/// another process of ours has reserved: its device ID is the one in that process's reply. Nor to one whose node may
/// not be opened. On a thread of its own.
void prepareArrival(Attachment& attachment);

} // namespace zul
