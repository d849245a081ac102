// Converts the device info and the conditions of a printer to JSON and to lines of text.
// Called by the command line and the window on the main queue.
#include "session/PrinterInfo.h"

#include "Classes/DeviceInfo.h"
#include "Classes/PrinterTypes.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/ArchiveTexts.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/LocalizedFormat.h"
#include "platform/usb/PrinterReservations.h"
#include "update/PrinterNeed.h"
#include "update/UpdateSupervisor.h"
#include "update/UpdateTexts.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace zul {

namespace {

using nlohmann::json;

json orNull(const std::optional<std::string>& text) {
    return text ? json(*text) : json(nullptr);
}

const char* nameOfOwnership(Ownership ownership) {
    if (ownership == Ownership::otherProgram) return "another program";
    return ownership == Ownership::thisProgram ? "this program" : "no program";
}

} // namespace

json summaryOf(TBUSBPrinterZUL& printer) {
    static_cast<void>(printer.newFirmwareVersion()); // stores the version and the problems in the device info
    const auto available = printer.availableFirmware();
    const bool isReady = available && available->isReady();
    return {{"key", printer.keyUSBdevice()},
            {"model", orNull(printer.model())},
            {"manufacturer", orNull(printer.manufacturer())},
            {"printerSerialNumber", orNull(printer.printerSerialNumber())},
            {"status", orNull(printer.printerStatus())},
            {"firmwareInstalled", orNull(printer.firmwareVersion())},
            {"firmwareOffered", isReady ? json(available->version) : json(nullptr)},
            {"firmwareFile", available ? json(nameOfAvailability(available->state)) : json(nullptr)},
            {"location", printer.locationText()}};
}

std::string availableFirmwareText(const TBUSBPrinterZUL& printer) {
    const auto available = printer.availableFirmware();
    return available ? availableText(*available) : "-";
}

json conditionOf(const UpdateSupervisor& supervisor, TBUSBPrinterZUL& printer) {
    const auto holder = supervisor.holder(printer.keyUSBdevice());
    const std::string interrupted = supervisor.interruptedText(printer);
    return {{"updateState", nameOfNeed(needOf(supervisor, printer).need)},
            {"holder", holder ? jsonOf(*holder) : json(nullptr)},
            {"interrupted", interrupted.empty() ? json(nullptr) : json(interrupted)},
            {"notAnswering", supervisor.isNotAnswering(printer.keyUSBdevice())}};
}

std::string conditionText(const UpdateSupervisor& supervisor, TBUSBPrinterZUL& printer) {
    const auto holder = supervisor.holder(printer.keyUSBdevice());
    // The holder first: while another process uses the printer, the other conditions cannot be acted on.
    std::string condition = holder ? describeHolder(*holder) : supervisor.interruptedText(printer);
    if (condition.empty() && supervisor.isNotAnswering(printer.keyUSBdevice())) {
        condition = localizedFormat("gives no valid answers, switch it off and on");
    }
    return condition;
}

std::string statusLine(const UpdateSupervisor& supervisor, TBUSBPrinterZUL& printer) {
    const std::string status = printer.printerStatus().value_or("");
    const std::string condition = conditionText(supervisor, printer);
    if (condition.empty()) return status;
    return status.empty() ? condition : status + ": " + condition;
}

json jsonOf(const InterfaceHolder& holder) {
    using Kind = InterfaceHolder::Kind;
    const char* kind = "unknown";
    if (holder.kind == Kind::process) kind = "program";
    if (holder.kind == Kind::printing) kind = "print job";
    if (holder.kind == Kind::ownProgram) kind = "printer utility";
    json result = {{"kind", kind}, {"program", holder.program}, {"pid", holder.pid}};
    if (!holder.activity.empty()) result["activity"] = holder.activity;
    if (!holder.phase.empty()) result["phase"] = holder.phase;
    if (holder.since != 0) result["since"] = holder.since;
    return result;
}

json jsonOf(const DeviceInfo::Value& value) {
    return std::visit([](const auto& held) { return json(held); }, value);
}

json infoOf(TBUSBPrinterZUL& printer) {
    json values = summaryOf(printer);
    values["vendorID"] = formatted("0x%.4X", printer.vendorNumber());
    values["productID"] = formatted("0x%.4X", printer.productNumber());
    values["locationID"] = formatted("0x%.8X", printer.locationNumber());
    values["usbVendor"] = orNull(printer.vendorUSB());
    values["usbProduct"] = orNull(printer.productUSB());
    values["usbSerialNumber"] = orNull(printer.serialNumberUSB());
    values["usbSerialNumberSetting"] = printer.usbISerialString();
    values["deviceID1284"] = orNull(printer.raw1284DeviceID());
    values["heldBy"] = nameOfOwnership(printer.ownership());
    values["state"] = printer.state();
    values["inFirmwareUpdate"] = printer.inFirmwareUpdate();
    values["isVirtual"] = printer.isVirtual();
    json info = json::object();
    for (const auto& [key, value] : printer.deviceInfoDict()->entries()) info[key] = jsonOf(value);
    values["deviceInfo"] = std::move(info);
    return values;
}

std::string oneLineText(const json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_null()) return "-";
    if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
    if (!value.is_array()) return value.dump();
    std::string text;
    for (const json& item : value) text += (text.empty() ? "" : ", ") + oneLineText(item);
    return text;
}

} // namespace zul
