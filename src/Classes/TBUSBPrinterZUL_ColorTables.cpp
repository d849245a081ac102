// The colour tables: the printer's are cleared and the archive's are written, a name and its contents each. Command
// queue.
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/FirmwareArchive.h"
#include "archive/SRecord.h"
#include "protocol/CommandFrame.h"
#include "protocol/StatusTexts.h"

#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"

namespace zul {

namespace {

constexpr std::size_t kShortestList = 3; // a model has a firmware file and at least two tables

// The archive's names are ASCII; nothing here may depend on the user's language.
std::string uppercase(std::string name) {
    for (char& character : name) {
        if (character >= 'a' && character <= 'z') character = static_cast<char>(character - 'a' + 'A');
    }
    return name;
}

// As it is: the printers take tables of any length.
SharedData loggedContents(const std::string& name, const std::shared_ptr<const FirmwareFile>& file) {
    logText("got data of length %lu for file at path %s", file ? file->contents()->size() : 0, name);
    return file ? file->contents() : nullptr;
}

} // namespace

std::vector<std::string> TBUSBPrinterZUL::colorTableNames() const {
    auto names = _deviceInfoDict->strings(cFirmwareFilenames).value_or(std::vector<std::string>{});
    if (names.size() < kShortestList) return {};
    names.erase(names.begin());
    return names;
}

SharedData TBUSBPrinterZUL::paddedColorDataForVersion(const std::string& name) const {
    return loggedContents(name, _environment.archive.fileForReading(name, className()));
}

// What the table commands send: only what was verified, never a file that was changed since.
SharedData TBUSBPrinterZUL::verifiedColorData(const std::string& name) const {
    return loggedContents(name, _environment.archive.verifiedFile(name, className()));
}

void TBUSBPrinterZUL::updateColorTables(std::function<void(bool anyTable)> completion) {
    if (!verifyFirmwareArchive()) {
        logText("failed to verify firmware archive");
        emit(events::ArchiveRefused{});
        return;
    }
    openInterface([self = sharedSelf<TBUSBPrinterZUL>(), completion = std::move(completion)](IOReturn code) {
        self->assertOnCommandQueue();
        if (code == kIOReturnSuccess) self->writeColorTables(completion);
    });
}

void TBUSBPrinterZUL::writeColorTables(const std::function<void(bool)>& completion) {
    if (!waitForPrinterStatusCode(kReadyStatus)) return;
    setOverridePrinterStatus("Updating color tables ...");
    sendPrinterCommand(kCommandTableClear, /*payload=*/nullptr);
    refreshTables();
    const std::vector<std::string> names = colorTableNames();
    for (std::size_t index = 0; index < names.size(); ++index) {
        emit(events::TableBegun{.number = static_cast<std::int64_t>(index + 1),
                                .total = static_cast<std::int64_t>(names.size()),
                                .name = names[index]});
        writeColorTable(names[index]);
        refreshTables();
    }
    setProgress(UpdateProgress::finished);
    if (completion) completion(!names.empty());
}

// Counted as written once both commands are sent: what became of them is shown by whoever watches the update.
void TBUSBPrinterZUL::writeColorTable(const std::string& name) {
    const Data nameRecord = paddedData(dataFromText(uppercase(name)));
    const SharedData table = verifiedColorData(name);
    sendPrinterCommand(kCommandTableName, &nameRecord);
    sendPrinterCommand(kCommandTableWrite, table.get());
}

} // namespace zul
