// The firmware archive: which files belong to the model, whether they are what was shipped, and what they offer. Any
// thread; the files are read and checked where the call is made.
#include "Classes/TBUSBPrinterZUL.h"
#include "archive/FirmwareDigests.h"
#include "archive/ProductTable.h"
#include "archive/SRecord.h"

#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"

#include <array>
#include <filesystem>
#include <openssl/evp.h>
#include <openssl/hmac.h>

namespace zul {

namespace {

constexpr std::size_t kDigestSize = 32;
constexpr const char* kNewFirmwareVersionKey = "newFirmwareVersion";

// The number behind the last blank: "VK18DUP 1.40PRN" offers 1.40.
double versionNumber(const std::optional<std::string>& version) {
    if (!version) return 0.0;
    const auto blank = version->rfind(' ');
    return doubleValue(blank == std::string::npos ? *version : version->substr(blank + 1));
}

} // namespace

// ---- digests --------------------------------------------------------------------------------------------------------

std::string TBUSBPrinterZUL::asciiHexForData(const Data& data) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * data.size());
    for (const std::uint8_t byte : data) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

TBUSBPrinter::Text TBUSBPrinterZUL::verifyBlob(const Data& data) const {
    if (data.empty()) return std::nullopt;
    logText("keyed on %s", className());
    return keyedDigest(className(), data);
}

TBUSBPrinter::Text TBUSBPrinterZUL::digestOfBlob(const Data& data) {
    return data.empty() ? std::nullopt : Text(keyedDigest(kProductClassName, data));
}

std::string TBUSBPrinterZUL::keyedDigest(const std::string& key, const Data& data) {
    Data digest(kDigestSize + 1, 0); // the closing zero byte belongs to every digest text
    unsigned length = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), data.data(), data.size(), digest.data(), &length);
    return asciiHexForData(digest);
}

bool TBUSBPrinterZUL::verifyFirmwareArchive() {
    logText("%s", "-[TBUSBPrinterZUL verifyFirmwareArchive]");
    logText("switching on productID 0x%x", _idProduct);
    const Product* product = productWithID(_idProduct);
    if (product == nullptr) return false;

    const std::vector<std::string> names(product->files.begin(), product->files.end());
    setFilenames(names);
    const FirmwareDigests supplied = readFirmwareDigests(_environment.mainBundle.archiveFolder());
    if (!supplied.problem.empty()) logText("%s", supplied.problem);
    std::vector<std::string> digests;
    for (const std::string& name : names) {
        const auto found = supplied.digests.find(name);
        digests.push_back(found == supplied.digests.end() ? std::string() : found->second);
    }
    _deviceInfoDict->set(cFirmwareFileHashes, supplied.digests.empty() ? std::vector<std::string>() : digests);

    bool result = false;
    for (std::size_t index = 0; index < names.size(); ++index) {
        bool readable = false;
        const bool matches = verifyFile(names[index], digests[index], readable);
        if (!readable) continue; // a missing file is not a failure: the next one decides
        if (!matches) return false;
        result = true;
    }
    return result;
}

void TBUSBPrinterZUL::tellArchiveRefused() {
    PrinterEvent event;
    event.kind = PrinterEvent::Kind::archiveRefused;
    emit(event);
}

bool TBUSBPrinterZUL::verifyFile(const std::string& name, const std::string& expectedDigest, bool& readable) {
    const std::optional<Data> contents = archiveFile(name);
    readable = contents.has_value();
    if (!readable) return false;
    const Text digest = verifyBlob(*contents);
    const bool matches = digest && *digest == expectedDigest; // an empty file has no digest and never matches
    _deviceInfoDict->set(name, matches);
    return matches;
}

std::optional<Data> TBUSBPrinterZUL::archiveFile(const std::string& filename) const {
    const std::filesystem::path name(filename);
    const std::string extension = name.extension().string();
    const auto path = _environment.mainBundle.pathForResource(name.stem().string(),
                                                              extension.empty() ? extension : extension.substr(1));
    return path ? Bundle::contentsOfFile(*path) : std::nullopt;
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
    // At once, because the caller goes on to read files by this list; again on main, for the notices.
    _deviceInfoDict->set(cFirmwareFilenames, filenames);
    _environment.mainQueue.async(store);
}

// ---- what the archive offers ----------------------------------------------------------------------------------------

std::optional<Data> TBUSBPrinterZUL::firmwareBlob() {
    const auto names = _deviceInfoDict->strings(cFirmwareFilenames);
    if (!names || names->empty()) return std::nullopt;
    std::optional<Data> contents = archiveFile(names->front());
    if (!contents) return std::nullopt;
    // Only logged: whoever comes here has had the archive verified, and the printer checks the image itself.
    if (!verifyMotorolaSFile(*contents)) logText("Bad firmware file! Verification failed!");
    return paddedData(std::move(*contents));
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

double TBUSBPrinterZUL::availableFirmwareVersion() {
    return versionNumber(newFirmwareVersion());
}

double TBUSBPrinterZUL::installedFirmwareVersion() const {
    return versionNumber(firmwareVersion());
}

} // namespace zul
