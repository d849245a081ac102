// The requirements of a gadget, and the USB device controllers (UDCs) of this machine.
#pragma once

#include "platform/files/ScopedFd.h"

#include <string>
#include <vector>

namespace zul {

/// Throws GadgetError if the user is not root, or if configfs or the gadget framework is missing. Loads no module.
void checkHost();

/// Selects a controller: the named one, or the first free one if name is empty. Throws GadgetError.
std::string chooseUdc(const std::string& name);
/// Names of the controllers that no gadget uses.
std::vector<std::string> freeUdcs();

/// A lock that is held while a gadget of this name runs, so that a second process does not remove it as a leftover.
ScopedFd lockName(const std::string& name);

} // namespace zul
