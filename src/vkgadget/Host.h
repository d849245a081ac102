// What this machine must have before a gadget can be made, and the USB device controllers (UDCs) that it has.
#pragma once

#include "platform/files/ScopedFd.h"

#include <string>
#include <vector>

namespace zul {

/// Throws GadgetError when not root, or when configfs or the gadget framework is not there; loads nothing by itself.
void checkHost();

/// The controller to use: the named one, or the first that is free when name is empty. Throws GadgetError.
std::string chooseUdc(const std::string& name);
/// The controllers that no gadget uses, by name.
std::vector<std::string> freeUdcs();

/// Held while a gadget of this name is running, so that a second process does not take it for a leftover.
ScopedFd lockName(const std::string& name);

} // namespace zul
