// Reads the device info of one printer and turns it into labelled lines. GUI thread, which is the main queue's; called
// by DetailsPane and by the report.
#include "ui/Details.h"

#include "Classes/ColorTables.h"
#include "Classes/DeviceInfo.h"
#include "Classes/DeviceInfoKeys.h"
#include "Classes/PrinterTypes.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/FirmwareArchive.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"
#include "session/PrinterInfo.h"
#include "ui/Texts.h"

#include <optional>
#include <string>
#include <vector>

namespace zul::ui {

namespace {

std::string ownerText(Ownership ownership) {
    if (ownership == Ownership::otherProgram) return Bundle::localized("another program");
    return ownership == Ownership::thisProgram ? Bundle::localized("this program") : Bundle::localized("no program");
}

void add(std::vector<Detail>& details, const char* label, const std::optional<std::string>& value) {
    if (value && !value->empty()) details.push_back({localized(label), qtext(*value)});
}

void addFirmware(std::vector<Detail>& details, TBUSBPrinterZUL& printer) {
    add(details, operatorText("Firmware"), printer.firmwareVersion());
    // Called because it checks the files: addFirmwareFiles lists the results.
    static_cast<void>(printer.newFirmwareVersion());
    if (printer.availableFirmware()) add(details, operatorText("Available Firmware"), availableFirmwareText(printer));
    add(details, operatorText("Previous firmware"), printer.infoText(HOLVEN_TBPrinterFirmwareVersionPrevious));
    for (const ColorTable& table : allColorTables())
        add(details, table.versionLabel, printer.infoText(table.versionKey));
    for (const ColorTable& table : allColorTables())
        add(details, table.checksumLabel, printer.infoText(table.checksumKey));
}

// The result of the latest check of each file; a missing file has none.
void addFirmwareFiles(std::vector<Detail>& details, TBUSBPrinterZUL& printer) {
    const DeviceInfo& known = *printer.deviceInfoDict();
    for (const std::string& name : known.strings(cFirmwareFilenames).value_or(std::vector<std::string>{})) {
        const auto isIntact = known.boolean(name);
        if (!isIntact) continue;
        add(details, operatorText("Firmware file"),
            name + ": " + Bundle::localized(*isIntact ? operatorText("intact") : operatorText("damaged")));
    }
}

void addUSB(std::vector<Detail>& details, const TBUSBPrinterZUL& printer) {
    add(details, operatorText("Location"), printer.locationText());
    add(details, operatorText("USB vendor and product ID"),
        formatted("0x%.4X 0x%.4X", printer.vendorNumber(), printer.productNumber()));
    add(details, operatorText("USB vendor"), printer.vendorUSB());
    add(details, operatorText("USB product"), printer.productUSB());
    add(details, operatorText("USB serial number"), printer.serialNumberUSB());
    add(details, operatorText("USB serial number setting"), Bundle::localized(printer.usbISerialString().c_str()));
    add(details, operatorText("1284 device ID"), printer.raw1284DeviceID());
    add(details, operatorText("USB state"), printer.status());
    add(details, operatorText("Held by"), ownerText(printer.ownership()));
    add(details, operatorText("Key"), printer.keyUSBdevice());
}

} // namespace

std::vector<Detail> detailsOf(TBUSBPrinterZUL& printer) {
    std::vector<Detail> details;
    add(details, operatorText("Model"), printer.model());
    add(details, operatorText("Manufacturer"), printer.manufacturer());
    add(details, operatorText("Serial Number"), printer.printerSerialNumber());
    add(details, operatorText("Status"), printer.printerStatus());
    add(details, operatorText("Lifetime Counter"), printer.lifetimeCounter());
    if (printer.inFirmwareUpdate()) add(details, operatorText("Firmware update"), Bundle::localized("under way"));
    addFirmware(details, printer);
    addFirmwareFiles(details, printer);
    addUSB(details, printer);
    if (printer.isVirtual()) add(details, operatorText("Virtual printer"), Bundle::localized("yes"));
    return details;
}

} // namespace zul::ui
