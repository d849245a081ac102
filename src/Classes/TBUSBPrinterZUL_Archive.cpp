// The firmware archive: which files belong to the model, whether they are what was shipped, and what they offer. Any
// thread; files that are not known yet are read where the call is made.
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/FirmwareArchive.h"
#include "archive/KeyedDigest.h"
#include "archive/SRecord.h"

#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"

#include <filesystem>

namespace zul {

namespace {

constexpr const char* kNewFirmwareVersionKey = "newFirmwareVersion";

// The number after the last blank: "VK18DUP 1.40PRN" offers 1.40.
double versionNumber(const std::optional<std::string>& version) {
    if (!version) return 0.0;
    const auto blank = version->rfind(' ');
    return doubleValue(blank == std::string::npos ? *version : version->substr(blank + 1));
}

} // namespace

// ---- verification ---------------------------------------------------------------------------------------------------

std::string TBUSBPrinterZUL::asciiHexForData(const Data& data) {
    return hexText(data);
}

TBUSBPrinter::Text TBUSBPrinterZUL::verifyBlob(const Data& data) const {
    if (data.empty()) return std::nullopt;
    logText("keyed on %s", className());
    return keyedDigest(className(), data);
}

TBUSBPrinter::Text TBUSBPrinterZUL::digestOfBlob(const Data& data) {
    return data.empty() ? std::nullopt : Text(keyedDigest(kProductClassName, data));
}

bool TBUSBPrinterZUL::verifyFirmwareArchive() {
    logText("%s", "-[TBUSBPrinterZUL verifyFirmwareArchive]");
    logText("switching on productID 0x%x", productNumber());
    const Product* product = productWithID(productNumber());
    if (product == nullptr) return false;

    const std::vector<std::string> names(product->files.begin(), product->files.end());
    setFilenames(names);
    const ArchiveCheck check = _environment.archive.check(*product, className());
    if (!check.digests->problem.empty()) logText("%s", check.digests->problem);
    std::vector<std::string> digests;
    if (!check.digests->digests.empty()) {
        for (const std::string& name : names) digests.push_back(check.digests->digestOf(name));
    }
    _deviceInfoDict->set(cFirmwareFileHashes, digests);
    for (const ArchiveFile& file : check.files) {
        if (!file.wasRead()) continue;
        // One line for each file of each check, as verifyBlob has it, also where the digest is known from an earlier
        // one.
        if (!file.digest.empty()) logText("keyed on %s", className());
        _deviceInfoDict->set(file.name, file.state == ArchiveFile::State::matches);
    }
    return check.hasPassed;
}

void TBUSBPrinterZUL::setFilenames(const std::vector<std::string>& filenames) {
    const auto store = [self = sharedSelf<TBUSBPrinterZUL>(), filenames] {
        const KeyChange change(*self, kNewFirmwareVersionKey);
        self->_deviceInfoDict->set(cFirmwareFilenames, filenames);
    };
    if (isMainQueue()) {
        store();
        return;
    }
    // At once, because the caller reads files by this list next; again on main, for the notices.
    _deviceInfoDict->set(cFirmwareFilenames, filenames);
    _environment.mainQueue.async(store);
}

// ---- what the archive offers ----------------------------------------------------------------------------------------

SharedData TBUSBPrinterZUL::firmwareBlob() {
    const auto names = _deviceInfoDict->strings(cFirmwareFilenames);
    if (!names || names->empty()) return nullptr;
    return firmwareBlobOf(_environment.archive.fileForReading(names->front(), className()));
}

// What an upload sends. It is not read again: a file that has changed since it was verified is not what was verified.
SharedData TBUSBPrinterZUL::verifiedFirmwareBlob() {
    const auto names = _deviceInfoDict->strings(cFirmwareFilenames);
    if (!names || names->empty()) return nullptr;
    return firmwareBlobOf(_environment.archive.verifiedFile(names->front(), className()));
}

SharedData TBUSBPrinterZUL::firmwareBlobOf(const std::shared_ptr<const FirmwareFile>& file) const {
    if (!file) return nullptr;
    // Only logged: whoever comes here has had the archive verified, and the printer checks the image itself.
    if (!file->isSRecordText()) logText("Bad firmware file! Verification failed!");
    logPadding(file->contents()->size(), file->padded()->size());
    return file->padded();
}

std::optional<Data> TBUSBPrinterZUL::firmwareBlobForKey(const std::string& key) {
    const Text value = _deviceInfoDict->string(key);
    return value ? std::optional(paddedData(dataFromText(*value))) : std::nullopt;
}

TBUSBPrinter::Text TBUSBPrinterZUL::newFirmwareVersion() {
    auto names = _deviceInfoDict->strings(cFirmwareFilenames);
    if (!names) {
        static_cast<void>(verifyFirmwareArchive()); // for the list alone
        names = _deviceInfoDict->strings(cFirmwareFilenames);
    }
    if (!names || names->empty()) return std::nullopt;
    return std::filesystem::path(names->front()).stem().string();
}

std::optional<FirmwareOffer> TBUSBPrinterZUL::firmwareOffer() const {
    const Product* product = productWithID(productNumber());
    // Without an archive nothing is offered, and nothing is missing in it either.
    if (product == nullptr || _environment.mainBundle.archiveFolder().empty()) return std::nullopt;
    return _environment.archive.offer(*product, className());
}

std::vector<ArchiveProblem> TBUSBPrinterZUL::archiveProblems() const {
    return _environment.archive.problems(productWithID(productNumber()), className());
}

double TBUSBPrinterZUL::availableFirmwareVersion() {
    return versionNumber(newFirmwareVersion());
}

double TBUSBPrinterZUL::installedFirmwareVersion() const {
    return versionNumber(firmwareVersion());
}

} // namespace zul
