// What is known about a printer, as JSON and as lines. Main queue.
#pragma once

#include "Classes/TBUSBPrinterZUL.h"

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace zul {

class UpdateSupervisor;

/// The short form of list.
nlohmann::json summaryOf(TBUSBPrinterZUL& printer);
/// The offered version as a person reads it: "VK14 01.61" or, when it cannot be installed, why: "VK14 01.61, file
/// damaged". "-" for a model without firmware files.
std::string offeredFirmware(const TBUSBPrinterZUL& printer);
/// What keeps the printer from being used or needs to be done with it: "holder" and "interrupted", each null if there
/// is nothing of the kind, and "notAnswering".
nlohmann::json conditionOf(const UpdateSupervisor& supervisor, TBUSBPrinterZUL& printer);
/// The same for a person, in one line; empty if there is no such condition.
std::string conditionText(const UpdateSupervisor& supervisor, TBUSBPrinterZUL& printer);
/// The printer's status with that condition, in one line; empty if neither is known.
std::string statusLine(const UpdateSupervisor& supervisor, TBUSBPrinterZUL& printer);
/// A holder in JSON.
nlohmann::json jsonOf(const InterfaceHolder& holder);
/// Everything.
nlohmann::json factsOf(TBUSBPrinterZUL& printer);
/// A fact of the device-information dictionary as JSON.
nlohmann::json jsonOf(const DeviceInfo::Value& value);
/// Any JSON value as one line of text.
std::string textOf(const nlohmann::json& value);

} // namespace zul
