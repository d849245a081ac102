// The colour tables of an update: the printer's are cleared and the archive's are written, a name and its contents
// each. Command queue; called at the end of an update and by the printer's own operation.
#include "Classes/FirmwareUpdate.h"
#include "Classes/PrinterEvents.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/SRecord.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Format.h"
#include "platform/usb/IOReturn.h"
#include "protocol/CommandFrame.h"
#include "protocol/StatusTexts.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace zul {

namespace {

// The archive's names are ASCII; nothing here may depend on the user's language.
std::string uppercase(std::string name) {
    for (char& character : name) {
        if (character >= 'a' && character <= 'z') character = static_cast<char>(character - 'a' + 'A');
    }
    return name;
}

} // namespace

void FirmwareUpdate::updateTables(std::function<void(bool anyTable)> completion) {
    if (!_printer.verifyFirmwareArchive()) {
        logText("failed to verify firmware archive");
        _printer.emit(events::ArchiveRefused{});
        return;
    }
    _printer.openInterface([self = shared(), completion = std::move(completion)](IOReturn code) {
        if (code == kIOReturnSuccess) self->writeTables(completion);
    });
}

void FirmwareUpdate::writeTables(const std::function<void(bool)>& completion) {
    _printer.assertOnCommandQueue();
    if (!waitForStatus(kReadyStatus)) return;
    overrideStatus("Updating color tables ...");
    // All tables first: a printer whose update ends here has none, and not a mixture of old and new ones.
    _printer.sendPrinterCommand(kCommandTableClear, /*payload=*/nullptr);
    _printer.refreshTables();
    const std::vector<std::string> names = _files.tableNames();
    for (std::size_t index = 0; index < names.size(); ++index) {
        _printer.emit(events::TableBegun{.number = static_cast<std::int64_t>(index + 1),
                                         .total = static_cast<std::int64_t>(names.size()),
                                         .name = names[index]});
        writeTable(names[index]);
        _printer.refreshTables();
    }
    setProgress(UpdateProgress::finished);
    // Without table names the operator gets the report of a problem: the archive has no tables for this model.
    if (completion) completion(!names.empty());
}

// A table is taken as written once both commands are sent; the supervisor of updates checks what the printer reports of
// it.
void FirmwareUpdate::writeTable(const std::string& name) {
    _printer.assertOnCommandQueue();
    const Data nameRecord = paddedData(dataFromText(uppercase(name)));
    const SharedData table = _files.verifiedTable(name);
    _printer.sendPrinterCommand(kCommandTableName, &nameRecord);
    _printer.sendPrinterCommand(kCommandTableWrite, table.get());
}

} // namespace zul
