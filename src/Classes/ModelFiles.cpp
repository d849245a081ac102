// The firmware files of one printer's model. Any thread; called by the printer's operations on the archive and by its
// update.
#include "Classes/ModelFiles.h"

#include "Classes/TBUSBPrinterZUL.h"
#include "archive/FirmwareArchive.h"
#include "archive/SRecord.h"

#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"

#include <filesystem>

namespace zul {

namespace {

constexpr const char* kNewFirmwareVersionKey = "newFirmwareVersion";
constexpr std::size_t kShortestList = 3; // a model has a firmware file and at least two tables

// The number after the last blank: "VK18DUP 1.40PRN" offers 1.40.
double versionNumber(const std::optional<std::string>& version) {
    if (!version) return 0.0;
    const auto blank = version->rfind(' ');
    return doubleValue(blank == std::string::npos ? *version : version->substr(blank + 1));
}

// As it is: the printers take tables of any length.
SharedData loggedContents(const std::string& name, const std::shared_ptr<const FirmwareFile>& file) {
    logText("got data of length %lu for file at path %s", file ? file->contents()->size() : 0, name);
    return file ? file->contents() : nullptr;
}

} // namespace

// ---- verification ---------------------------------------------------------------------------------------------------

bool ModelFiles::verify() {
    logText("%s", "-[TBUSBPrinterZUL verifyFirmwareArchive]");
    logText("switching on productID 0x%x", _printer.productNumber());
    const Product* product = productWithID(_printer.productNumber());
    if (product == nullptr) return false;

    const std::vector<std::string> names(product->files.begin(), product->files.end());
    _printer.setFilenames(names);
    const ArchiveCheck check = _printer.environment().archive.check(*product, _printer.className());
    if (!check.digests->problem.empty()) logText("%s", check.digests->problem);
    std::vector<std::string> digests;
    if (!check.digests->digests.empty()) {
        for (const std::string& name : names) digests.push_back(check.digests->digestOf(name));
    }
    const DeviceInfoPtr info = _printer.deviceInfoDict();
    info->set(cFirmwareFileHashes, digests);
    for (const ArchiveFile& file : check.files) {
        if (!file.wasRead()) continue;
        // One line for each file of each check, as verifyBlob has it, also where the digest is known from an earlier
        // one.
        if (!file.digest.empty()) logText("keyed on %s", _printer.className());
        info->set(file.name, file.state == ArchiveFile::State::matches);
    }
    return check.hasPassed;
}

void ModelFiles::setNames(const std::vector<std::string>& names) {
    const auto store = [printer = _printer.shared_from_this(), names] {
        assertOnMainQueue();
        const KeyChange change(*printer, kNewFirmwareVersionKey);
        printer->deviceInfoDict()->set(cFirmwareFilenames, names);
    };
    if (TBUSBPrinter::isMainQueue()) {
        store();
        return;
    }
    // At once, because the caller reads files by this list next; again on main, for the notices.
    _printer.deviceInfoDict()->set(cFirmwareFilenames, names);
    _printer.environment().mainQueue.async(store);
}

// ---- contents -------------------------------------------------------------------------------------------------------

std::optional<std::string> ModelFiles::imageName() const {
    const auto names = _printer.deviceInfoDict()->strings(cFirmwareFilenames);
    return names && !names->empty() ? std::optional(names->front()) : std::nullopt;
}

SharedData ModelFiles::image() const {
    const auto name = imageName();
    return name ? paddedImage(_printer.environment().archive.fileForReading(*name, _printer.className())) : nullptr;
}

// What an upload sends. It is not read again: a file that has changed since it was verified is not what was verified.
SharedData ModelFiles::verifiedImage() const {
    const auto name = imageName();
    return name ? paddedImage(_printer.environment().archive.verifiedFile(*name, _printer.className())) : nullptr;
}

SharedData ModelFiles::paddedImage(const std::shared_ptr<const FirmwareFile>& file) const {
    if (!file) return nullptr;
    // Only logged: whoever comes here has had the archive verified, and the printer checks the image itself.
    if (!file->isSRecordText()) logText("Bad firmware file! Verification failed!");
    logPadding(file->contents()->size(), file->padded()->size());
    return file->padded();
}

std::vector<std::string> ModelFiles::tableNames() const {
    auto names = _printer.deviceInfoDict()->strings(cFirmwareFilenames).value_or(std::vector<std::string>{});
    if (names.size() < kShortestList) return {};
    names.erase(names.begin());
    return names;
}

SharedData ModelFiles::table(const std::string& name) const {
    return loggedContents(name, _printer.environment().archive.fileForReading(name, _printer.className()));
}

// What the table commands send: only what was verified, never a file that was changed since.
SharedData ModelFiles::verifiedTable(const std::string& name) const {
    return loggedContents(name, _printer.environment().archive.verifiedFile(name, _printer.className()));
}

// ---- what the archive offers ----------------------------------------------------------------------------------------

OptionalText ModelFiles::offeredVersion() {
    if (!_printer.deviceInfoDict()->strings(cFirmwareFilenames)) {
        static_cast<void>(_printer.verifyFirmwareArchive()); // for the list alone
    }
    const auto name = imageName();
    return name ? OptionalText(std::filesystem::path(*name).stem().string()) : std::nullopt;
}

double ModelFiles::offeredVersionNumber() {
    return versionNumber(_printer.newFirmwareVersion());
}

double ModelFiles::installedVersionNumber() const {
    return versionNumber(_printer.firmwareVersion());
}

std::optional<FirmwareOffer> ModelFiles::offer() const {
    const Product* product = productWithID(_printer.productNumber());
    // Without an archive nothing is offered, and nothing is missing in it either.
    if (product == nullptr || _printer.environment().mainBundle.archiveFolder().empty()) return std::nullopt;
    return _printer.environment().archive.offer(*product, _printer.className());
}

std::vector<ArchiveProblem> ModelFiles::problems() const {
    return _printer.environment().archive.problems(productWithID(_printer.productNumber()), _printer.className());
}

} // namespace zul
