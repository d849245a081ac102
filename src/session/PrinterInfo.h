// The device info of a printer as JSON and as lines of text. Main queue.
#pragma once

#include "Classes/DeviceInfo.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "platform/usb/PrinterReservations.h"

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace zul {

class UpdateSupervisor;

/// The entries that the command list shows.
nlohmann::json summaryOf(TBUSBPrinterZUL& printer);
/// The available version for people: "VK14 01.61", or with the reason if it cannot be installed: "VK14 01.61, file
/// damaged". "-" for a model without firmware files.
std::string availableFirmwareText(const TBUSBPrinterZUL& printer);
/// What the printer needs ("updateState", a name of PrinterNeed), and the conditions that keep it from being used or
/// that need an action: "holder" and "interrupted", each null if absent, and "notAnswering".
nlohmann::json conditionOf(const UpdateSupervisor& supervisor, TBUSBPrinterZUL& printer);
/// The same for people, in one line; empty without such a condition.
std::string conditionText(const UpdateSupervisor& supervisor, TBUSBPrinterZUL& printer);
/// The printer's status with that condition, in one line; empty if neither is known.
std::string statusLine(const UpdateSupervisor& supervisor, TBUSBPrinterZUL& printer);
/// A holder as JSON.
nlohmann::json jsonOf(const InterfaceHolder& holder);
/// The whole device info.
nlohmann::json infoOf(TBUSBPrinterZUL& printer);
/// A value of the device-information dictionary as JSON.
nlohmann::json jsonOf(const DeviceInfo::Value& value);
/// Any JSON value as one line of text.
std::string oneLineText(const nlohmann::json& value);

} // namespace zul
