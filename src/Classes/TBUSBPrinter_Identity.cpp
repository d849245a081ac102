// Who the printer is: the IEEE 1284 device ID, the USB strings, the keys and labels made of them, and the store that
// remembers what was learned about a device while it restarts. Device reads run on the command queue (inline while the
// object is being made); the properties they fill are set on the main queue.
#include "Classes/TBUSBPrinter.h"

#include "Classes/DeviceObjects.h"
#include "Classes/StatusCodeNames.h"
#include "Classes/TBPrinters.h"
#include "Classes/USBInterfaceHelpers.h"
#include "holven_Base/HOLVEN_NSStringAdditions.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"

#include <algorithm>
#include <cassert>
#include <strings.h>

namespace zul {

namespace {

constexpr std::uint16_t kDeviceIDBufferSize = 65535;
constexpr std::uint32_t kDeviceIDTimeout = 100;          // ms
constexpr std::uint32_t kDescriptorNoDataTimeout = 500;  // ms
constexpr std::uint32_t kLanguageTableTimeout = 2000;    // ms
constexpr std::uint32_t kStringDescriptorTimeout = 1000; // ms
constexpr std::size_t kDescriptorBufferSize = 256;
constexpr std::uint8_t kStringDescriptorType = 3;
constexpr std::uint8_t kDeviceQualifierType = 6;

// Learned facts by device key, for the life of the process. Main queue only, so it needs no lock; it is never
// destroyed, because printers' queues may outlive the end of main().
std::map<std::string, DeviceInfoPtr>& deviceInfoStore() {
    static auto* const gPrivateInstanceRegistry = new std::map<std::string, DeviceInfoPtr>;
    return *gPrivateInstanceRegistry;
}

std::optional<std::string> valueInDeviceID(const std::string& deviceID, const char* prefix) {
    return TBCFStringCreateSubstringFromPrefixToTerminator(deviceID, prefix, ";");
}

bool isEnglish(std::uint16_t language) {
    return (language & 0x3FF) == 9;
}

// A language seen later is preferred when it is the first English one, or an English with a smaller sub-language.
bool isPreferred(std::uint16_t candidate, std::uint16_t choice) {
    if (!isEnglish(candidate)) return false;
    return !isEnglish(choice) || (candidate >> 10) < (choice >> 10);
}

} // namespace

// ---- names and keys -------------------------------------------------------------------------------------------------

std::string nameOf(const TBUSBPrinter& printer) {
    std::string name =
        printer.model().value_or(printer.productUSB().value_or(Bundle::localized(operatorText("printer"))));
    const auto serial = printer.printerSerialNumber() ? printer.printerSerialNumber() : printer.serialNumberUSB();
    if (serial && !serial->empty()) name += ' ' + *serial;
    return name + " (" + printer.locationText() + ")";
}

std::string TBUSBPrinter::keyUSBdevice() const {
    return formatted("%.4X%.4X%.8X", _idVendor, _idProduct, _locationID);
}
std::string TBUSBPrinter::idLocation() const {
    return formatted("%x", _locationID);
}
std::string TBUSBPrinter::idVendor() const {
    return formatted("%d", _idVendor);
}
std::string TBUSBPrinter::idProduct() const {
    return formatted("%d", _idProduct);
}

std::string TBUSBPrinter::descriptionUTF8() const {
    const std::scoped_lock lock(_textMutex);
    return textOrNull(_manufacturer ? _manufacturer : _vendorUSB) + ' ' + textOrNull(_model ? _model : _productUSB) +
           ' ' + textOrNull(_serialNumberUSB);
}

// ---- IEEE 1284 device ID --------------------------------------------------------------------------------------------

void TBUSBPrinter::update1284DeviceID(DeviceIDCompletion completion) {
    performInlineOnCommandQueue([self = shared_from_this(), completion = std::move(completion)] {
        self->assertOnCommandQueue();
        const Text deviceID = self->read1284DeviceID();
        if (deviceID) self->performSyncOnMainQueue([&] { self->setRaw1284DeviceID(deviceID); });
        if (completion) completion(deviceID.has_value(), deviceID);
    });
}

TBUSBPrinter::Text TBUSBPrinter::read1284DeviceID() {
    if (!_iInterface) return std::nullopt;
    std::uint8_t configuration = 0;
    std::uint8_t number = 0;
    std::uint8_t alternate = 0;
    if (const IOReturn code = _iInterface->GetConfigurationValue(configuration); code != kIOReturnSuccess) {
        logText("%s returned %s [%x]\n", "GetConfigurationValue()", strForIOReturn(code), asHex(code));
        return std::nullopt;
    }
    if (const IOReturn code = _iInterface->GetInterfaceNumber(number); code != kIOReturnSuccess) {
        standardErrorLog(
            formatted("ERROR: %s returned %s [%x]\n", "GetInterfaceNumber()", strForIOReturn(code), asHex(code)));
        return std::nullopt;
    }
    if (const IOReturn code = _iInterface->GetAlternateSetting(alternate); code != kIOReturnSuccess) {
        standardErrorLog(
            formatted("ERROR: %s returned %s [%x]\n", "GetAlternateSetting()", strForIOReturn(code), asHex(code)));
        return std::nullopt;
    }

    Data buffer(kDeviceIDBufferSize, 0);
    IOUSBDevRequestTO request;
    request.bmRequestType = 0xA1; // device to host, class, interface
    request.bRequest = 0;         // GET_DEVICE_ID
    request.wValue = static_cast<std::uint16_t>(configuration - 1);
    request.wIndex = static_cast<std::uint16_t>(number << 8 | alternate);
    request.wLength = kDeviceIDBufferSize;
    request.pData = buffer.data();
    request.noDataTimeout = kDeviceIDTimeout;
    request.completionTimeout = kDeviceIDTimeout;
    if (_iInterface->ControlRequestTO(0, request) != kIOReturnSuccess) return std::nullopt;
    return textOf1284DeviceID(buffer, request.wLenDone);
}

// The first two bytes are the length, big-endian, and count themselves.
TBUSBPrinter::Text TBUSBPrinter::textOf1284DeviceID(Data& buffer, std::uint32_t received) {
    const std::size_t length = static_cast<std::size_t>(buffer[0]) << 8 | buffer[1];
    logText("Found a %u character device ID ... \n", length);
    if (length == 0) return std::nullopt;
    // A device may announce more than it sends; what it sent is what counts.
    const std::size_t end = std::min({length, std::size_t{kDeviceIDBufferSize} - 1, std::size_t{received}});
    if (end < 2) return std::nullopt;
    buffer[end] = 0;
    return stringFromNulTerminatedUTF8(Data(buffer.begin() + 2, buffer.begin() + static_cast<std::ptrdiff_t>(end) + 1));
}

void TBUSBPrinter::decodeDeviceID(const std::string& deviceID, const DecodedBlock& decoded) const {
    const auto firstOf = [&](const char* one, const char* other) {
        Text value = valueInDeviceID(deviceID, one);
        return value ? value : valueInDeviceID(deviceID, other);
    };
    const Text manufacturer = firstOf("MFG:", "MANUFACTURER:");
    const Text model = firstOf("MDL:", "MODEL:");
    const Text serialNumber = valueInDeviceID(deviceID, "SERN:");
    const Text description = firstOf("DESCRIPTION:", "DES:");
    if (!decoded) return;
    decoded(normalizedVendorString(manufacturer.value_or("unknown")), model.value_or("unknown"),
            serialNumber ? serialNumber : serialNumberUSB(), description);
}

std::optional<std::string> TBUSBPrinter::substringFromString(const std::string& text, const Text& prefix,
                                                             const Text& terminator, CompareOptions options,
                                                             Marks marks) {
    if (text.empty()) return std::nullopt;
    return TBCFStringCreateSubstringFromPrefixToTerminatorWithOptions(text, prefix, terminator, options, marks);
}

std::optional<std::string> TBUSBPrinter::noninclusiveCaseInsensitiveSubstringFromString(const std::string& text,
                                                                                        const Text& prefix,
                                                                                        const Text& terminator) {
    return substringFromString(text, prefix, terminator, CompareOptions::caseInsensitive, Marks::excluded);
}

TBUSBPrinter::Text TBUSBPrinter::normalizedVendorString(const Text& vendor) {
    struct Normalized {
        const char* vendor;
        const char* name;
    };
    constexpr Normalized kNames[] = {
        {"Zul Imaging Company", "ZUL"}, {"Zul Imaging Company ", "ZUL"}, {"HEWLETT-PACKARD", "HP"}};
    if (!vendor || vendor->size() <= 2) return vendor;
    for (const Normalized& entry : kNames) {
        if (strcasecmp(vendor->c_str(), entry.vendor) == 0) return entry.name;
    }
    return vendor;
}

// ---- string descriptors ---------------------------------------------------------------------------------------------

IOReturn TBUSBPrinter::readDescriptor(std::uint16_t value, std::uint16_t index, std::uint32_t completionTimeout,
                                      Data& buffer) {
    if (!_iInterface) return kIOReturnNoDevice;
    buffer.assign(kDescriptorBufferSize, 0);
    IOUSBDevRequestTO request;
    request.bmRequestType = 0x80; // device to host, standard, device
    request.bRequest = 6;         // GET_DESCRIPTOR
    request.wValue = value;
    request.wIndex = index;
    request.wLength = kDescriptorBufferSize;
    request.pData = buffer.data();
    request.noDataTimeout = kDescriptorNoDataTimeout;
    request.completionTimeout = completionTimeout;
    const IOReturn code = _iInterface->ControlRequestTO(0, request);
    _descriptorBytes = request.wLenDone;
    // A stall is an answer: the device has no such descriptor.
    if (code != kIOReturnSuccess && code != kIOUSBPipeStalled) _arrivalStrings.isUnresponsive = true;
    return code;
}

std::optional<std::set<std::uint16_t>> TBUSBPrinter::langIds() {
    if (_langIds) return _langIds;
    if (_arrivalStrings.isUnderWay && _arrivalStrings.isTableUnreadable) return std::nullopt;
    Data table;
    _arrivalStrings.isTableUnreadable = true; // until it is read
    if (readDescriptor(0x0300, 0, kLanguageTableTimeout, table) != kIOReturnSuccess) return std::nullopt;
    if (_descriptorBytes < 4) return std::nullopt;
    _arrivalStrings.isTableUnreadable = false;
    std::set<std::uint16_t> languages;
    std::optional<std::uint16_t> choice;
    for (std::size_t at = 2; at + 1 < table.size() && at < table[0]; at += 2) {
        // First byte high: the printers are asked for their strings with the index in this order.
        const auto language = static_cast<std::uint16_t>(table[at] << 8 | table[at + 1]);
        languages.insert(language);
        if (!choice || isPreferred(language, *choice)) choice = language;
    }
    _langIds = languages;
    _langId = choice.value_or(0);
    return _langIds;
}

std::uint16_t TBUSBPrinter::langId() {
    if (_langId == 0) static_cast<void>(langIds());
    return _langId;
}

void TBUSBPrinter::setLangId(std::uint16_t langId) {
    const auto languages = langIds();
    if (languages && languages->contains(langId)) _langId = langId;
}

TBUSBPrinter::Text TBUSBPrinter::descriptorStringAtIndex(std::uint8_t index) {
    Data buffer;
    const auto value = static_cast<std::uint16_t>(0x0300 | index);
    const std::uint16_t language = langId();
    if (_arrivalStrings.isUnderWay && _arrivalStrings.isUnresponsive) return std::nullopt;
    if (readDescriptor(value, language, kStringDescriptorTimeout, buffer) != kIOReturnSuccess) return std::nullopt;
    if (_descriptorBytes < 2) return std::nullopt;
    std::size_t length = buffer[0];
    const std::uint8_t type = buffer[1];
    if (type != kStringDescriptorType) {
        logText("The device returned a string descriptor with the incorrect descriptor type(returned %x (should be "
                "%x))\n",
                type, kStringDescriptorType);
        // Some devices answer with a device qualifier in front of the text.
        const std::size_t offset = 2 * (length + 1);
        if (type != kDeviceQualifierType || offset >= kDescriptorBufferSize) return std::nullopt;
        return stringFromNulTerminatedUTF8(Data(buffer.begin() + static_cast<std::ptrdiff_t>(offset), buffer.end()));
    }
    buffer[0] = 0xFF; // a little-endian byte-order mark in place of the descriptor's header
    buffer[1] = 0xFE;
    if (length % 2 != 0) --length;
    while (length >= 2 && buffer[length - 2] == 0) length -= 2;
    if (length < 4) return std::nullopt;
    buffer.resize(length);
    return stringFromUTF16WithByteOrderMark(buffer);
}

// At an arrival all this runs on the main queue. A device that does not answer costs it one time-out, not one for each
// string; who asks for a string later asks the device again.
void TBUSBPrinter::readUSBStrings() {
    _arrivalStrings = {.isUnderWay = true};
    getUSBProductString();
    getUSBSerialNumberString();
    getUSBVendorString();
    _arrivalStrings = {};
}

// Nothing when the device has no such string; asked tells whether the device could be asked at all.
TBUSBPrinter::Text TBUSBPrinter::readUSBString(StringIndexGetter getter, const char* getterName, bool& asked) {
    asked = false;
    const DevicePtr device = deviceInterface();
    if (!device) return std::nullopt;
    std::uint8_t index = 0;
    if (const IOReturn code = ((*device).*getter)(index); code != kIOReturnSuccess) {
        logText("%s() returned %s\n", getterName, strForIOReturn(code));
        return std::nullopt;
    }
    asked = true;
    // Index 0 means "none"; asking for it would read the language table as if it were a string.
    return index == 0 ? std::nullopt : descriptorStringAtIndex(index);
}

void TBUSBPrinter::getUSBVendorString() {
    performInlineOnCommandQueue([self = shared_from_this()] {
        self->assertOnCommandQueue();
        bool asked = false;
        const Text vendor = normalizedVendorString(self->readUSBString(
            &IOUSBDeviceInterface::USBGetManufacturerStringIndex, "USBGetManufacturerStringIndex", asked));
        if (!asked) return;
        self->performSyncOnMainQueue([&] { self->setVendorUSB(vendor); });
        logText("got USB vendor:%s", textOrNull(vendor));
    });
}

void TBUSBPrinter::getUSBProductString() {
    performInlineOnCommandQueue([self = shared_from_this()] {
        self->assertOnCommandQueue();
        bool asked = false;
        const Text product =
            self->readUSBString(&IOUSBDeviceInterface::USBGetProductStringIndex, "USBGetProductStringIndex", asked);
        if (!asked) return;
        self->performSyncOnMainQueue([&] { self->setProductUSB(product); });
        logText("got USB product:%s", textOrNull(product));
    });
}

void TBUSBPrinter::getUSBSerialNumberString() {
    performInlineOnCommandQueue([self = shared_from_this()] {
        self->assertOnCommandQueue();
        bool asked = false;
        const Text serialNumber = self->readUSBString(&IOUSBDeviceInterface::USBGetSerialNumberStringIndex,
                                                      "USBGetSerialNumberStringIndex", asked);
        if (!asked) return;
        self->performSyncOnMainQueue([&] { self->setSerialNumberUSB(serialNumber); });
        logText("got USB Serial Number:%s", textOrNull(serialNumber));
    });
}

// ---- what is remembered about devices -------------------------------------------------------------------------------

DeviceInfoPtr TBUSBPrinter::deviceInfoForKey(const std::string& key) {
    assert(isMainQueue());
    DeviceInfoPtr& info = deviceInfoStore()[key];
    if (!info) info = std::make_shared<DeviceInfo>();
    return info;
}

void TBUSBPrinter::setDeviceInfo(DeviceInfoPtr info, const std::string& key) {
    assert(isMainQueue());
    const auto description = info ? std::optional(info->description()) : std::nullopt;
    logText("%s:[%s] : %s", "+[TBUSBPrinter setDeviceInfo:forKey:]", key, textOrNull(description));
    if (info && info->isMutable()) deviceInfoStore()[key] = std::move(info);
}

void TBUSBPrinter::forgetDeviceInfo() {
    deviceInfoStore().clear();
    DeviceObjects::forget();
}

std::set<std::uint16_t> TBUSBPrinter::supportedVendorIDsOfClass() const {
    return {};
}
std::set<std::uint16_t> TBUSBPrinter::supportedProductIDsOfClass() const {
    return {};
}

} // namespace zul
