// Who the printer is: the IEEE 1284 device ID, the USB strings, the keys and labels made of them. Device reads run on
// the command queue (inline while the object is being made); the properties they fill are set on the main queue.
#include "Classes/TBUSBPrinter.h"

#include "Classes/DeviceID1284.h"
#include "Classes/StatusCodeNames.h"
#include "Classes/USBInterfaceHelpers.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Format.h"

#include <utility>

namespace zul {

// ---- names and keys -------------------------------------------------------------------------------------------------

std::string displayNameOf(const TBUSBPrinter& printer) {
    std::string name =
        printer.model().value_or(printer.productUSB().value_or(Bundle::localized(operatorText("printer"))));
    const auto serial = printer.printerSerialNumber() ? printer.printerSerialNumber() : printer.serialNumberUSB();
    if (serial && !serial->empty()) name += ' ' + *serial;
    return name + " (" + printer.locationText() + ")";
}

// ---- IEEE 1284 device ID --------------------------------------------------------------------------------------------

void TBUSBPrinter::update1284DeviceID(DeviceIDCompletion completion) {
    performInlineOnCommandQueue([self = shared_from_this(), completion = std::move(completion)] {
        self->assertOnCommandQueue();
        const InterfacePtr& interface = self->_channel.interface();
        const OptionalText deviceID = interface ? readDeviceID(*interface) : std::nullopt;
        if (deviceID) {
            self->performSyncOnMainQueue([&] {
                assertOnMainQueue();
                self->setRaw1284DeviceID(deviceID);
            });
        }
        if (completion) completion(deviceID.has_value(), deviceID);
    });
}

void TBUSBPrinter::decodeDeviceID(const std::string& deviceID, const DecodedBlock& decoded) const {
    if (!decoded) return;
    const DecodedDeviceID values = decodedDeviceID(deviceID);
    decoded(values.manufacturer, values.model, values.serialNumber ? values.serialNumber : serialNumberUSB(),
            values.description);
}

// ---- USB strings ----------------------------------------------------------------------------------------------------

// At an arrival all this runs on the main queue. A device that does not answer costs it one time-out, not one for each
// string; who asks for a string later asks the device again.
void TBUSBPrinter::readUSBStrings() {
    _descriptors.beginArrival();
    getUSBProductString();
    getUSBSerialNumberString();
    getUSBVendorString();
    _descriptors.endArrival();
}

std::optional<std::set<std::uint16_t>> TBUSBPrinter::langIds() {
    return _descriptors.languages();
}
std::uint16_t TBUSBPrinter::langId() {
    return _descriptors.language();
}
void TBUSBPrinter::setLangId(std::uint16_t langId) {
    _descriptors.setLanguage(langId);
}
OptionalText TBUSBPrinter::descriptorStringAtIndex(std::uint8_t index) {
    return _descriptors.stringAtIndex(index);
}

// nullopt if the device has no such string; asked is whether the device could be asked at all.
OptionalText TBUSBPrinter::readUSBString(StringIndexGetter getter, const char* getterName, bool& asked) {
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
        const OptionalText vendor = normalizedVendorString(self->readUSBString(
            &IOUSBDeviceInterface::USBGetManufacturerStringIndex, "USBGetManufacturerStringIndex", asked));
        if (!asked) return;
        self->performSyncOnMainQueue([&] {
            assertOnMainQueue();
            self->setVendorUSB(vendor);
        });
        logText("got USB vendor:%s", textOrNull(vendor));
    });
}

void TBUSBPrinter::getUSBProductString() {
    performInlineOnCommandQueue([self = shared_from_this()] {
        self->assertOnCommandQueue();
        bool asked = false;
        const OptionalText product =
            self->readUSBString(&IOUSBDeviceInterface::USBGetProductStringIndex, "USBGetProductStringIndex", asked);
        if (!asked) return;
        self->performSyncOnMainQueue([&] {
            assertOnMainQueue();
            self->setProductUSB(product);
        });
        logText("got USB product:%s", textOrNull(product));
    });
}

void TBUSBPrinter::getUSBSerialNumberString() {
    performInlineOnCommandQueue([self = shared_from_this()] {
        self->assertOnCommandQueue();
        bool asked = false;
        const OptionalText serialNumber = self->readUSBString(&IOUSBDeviceInterface::USBGetSerialNumberStringIndex,
                                                              "USBGetSerialNumberStringIndex", asked);
        if (!asked) return;
        self->performSyncOnMainQueue([&] {
            assertOnMainQueue();
            self->setSerialNumberUSB(serialNumber);
        });
        logText("got USB Serial Number:%s", textOrNull(serialNumber));
    });
}

// ---- what is remembered about devices -------------------------------------------------------------------------------

DeviceInfoPtr TBUSBPrinter::deviceInfoForKey(const std::string& key) {
    assertOnMainQueue();
    return Environment::current().deviceInfo.infoForKey(key);
}

void TBUSBPrinter::setDeviceInfo(DeviceInfoPtr info, const std::string& key) {
    assertOnMainQueue();
    Environment::current().deviceInfo.setInfo(std::move(info), key);
}

} // namespace zul
