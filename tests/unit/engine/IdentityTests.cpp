// The identity of a printer: device ID, strings, keys, and the store of device info.
#include "PrinterBench.h"

#include <algorithm>

using namespace zul;
using namespace zul::test;

namespace {

struct Decoded {
    std::optional<std::string> manufacturer, model, serialNumber, description;
};

Decoded decode(const TBUSBPrinter& printer, const std::string& deviceID) {
    Decoded decoded;
    printer.decodeDeviceID(
        deviceID, [&](const auto& manufacturer, const auto& model, const auto& serial, const auto& description) {
            decoded = {manufacturer, model, serial, description};
        });
    return decoded;
}

// Attaches a printer and records its calls.
void arrive(PrinterBench& bench) {
    bench.handle->answerByDefault();
    bench.printer = std::make_shared<TBUSBPrinterZUL>(bench.environment);
    bench.printer->initWithInterfaceInterface(bench.handle, 7);
}

// How often the device was asked for the descriptor.
long timesAsked(const PrinterBench& bench, std::uint16_t value) {
    const Journal journal = bench.handle->journal();
    const RequestMatcher isAsked = getDescriptor(value);
    return std::ranges::count_if(
        journal, [&](const JournalEntry& entry) { return entry.call == "ControlRequestTO" && isAsked(entry.request); });
}

} // namespace

TEST_CASE("a device ID with the long keys is decoded, and the USB serial number replaces a missing one") {
    PrinterBench bench;
    bench.inlinePrinter()->setSerialNumberUSB("USB1");
    const Decoded decoded = decode(*bench.printer, "MANUFACTURER:Zul Imaging Company;MODEL:VK26;");
    CHECK(decoded.manufacturer == "ZUL");
    CHECK(decoded.model == "VK26");
    CHECK(decoded.serialNumber == "USB1");
    CHECK(decoded.description == std::nullopt);
}

TEST_CASE("a device ID without manufacturer and model decodes to unknown") {
    PrinterBench bench;
    const Decoded decoded = decode(*bench.inlinePrinter(), "CLS:PRINTER;SERN:9;DES:A printer;");
    CHECK(decoded.manufacturer == "unknown");
    CHECK(decoded.model == "unknown");
    CHECK(decoded.serialNumber == "9");
    CHECK(decoded.description == "A printer");
}

TEST_CASE("keys of a device ID may have any case") {
    PrinterBench bench;
    const Decoded decoded = decode(*bench.inlinePrinter(), "mfg:hewlett-packard;mdl:X;description:D;");
    CHECK(decoded.manufacturer == "HP");
    CHECK(decoded.model == "X");
    CHECK(decoded.description == "D");
}

TEST_CASE("known vendor names are shortened and others are unchanged") {
    CHECK(TBUSBPrinter::normalizedVendorString("Zul Imaging Company ") == "ZUL");
    CHECK(TBUSBPrinter::normalizedVendorString("ZUL IMAGING COMPANY") == "ZUL");
    CHECK(TBUSBPrinter::normalizedVendorString("HP") == "HP");
    CHECK(TBUSBPrinter::normalizedVendorString("Other") == "Other");
    CHECK(TBUSBPrinter::normalizedVendorString(std::nullopt) == std::nullopt);
}

TEST_CASE("the device ID is requested with the printer class's request and 65535 bytes") {
    PrinterBench bench;
    bench.handle->configurationValue = 2;
    bench.handle->interfaceNumber = 1;
    bench.inlinePrinter();
    bench.handle->expectControlRequestTO(getDeviceID()).returns(deviceIDReply("MFG:A;"));
    std::optional<std::string> deviceID;
    bench.printer->update1284DeviceID([&](bool found, const auto& text) {
        CHECK(found);
        deviceID = text;
    });
    bench.settle();
    CHECK(deviceID == "MFG:A;");
    CHECK(bench.log.hasLogged("Found a 8 character device ID ... \n"));
    Journal requests;
    for (const auto& entry : bench.handle->journal()) {
        if (entry.call == "ControlRequestTO") requests.push_back(entry);
    }
    REQUIRE(requests.size() == 1);
    CHECK(requests[0].request.bmRequestType == 0xA1);
    CHECK(requests[0].request.bRequest == 0);
    CHECK(requests[0].request.wValue == 1);
    CHECK(requests[0].request.wIndex == 0x0100);
    CHECK(requests[0].request.wLength == 65535);
    CHECK(requests[0].completionTimeout == 100);
}

TEST_CASE("a device ID of length 0 is treated as missing") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.handle->expectControlRequestTO(getDeviceID()).returns(Data{0, 0});
    bool called = false;
    bench.printer->update1284DeviceID([&](bool found, const auto& text) {
        called = true;
        CHECK(found == false);
        CHECK(text == std::nullopt);
    });
    CHECK(called);
}

TEST_CASE("a device ID that announces more bytes than it has is used as received") {
    PrinterBench bench;
    bench.inlinePrinter();
    Data reply = {0x10, 0x00};
    for (const char character : std::string("MDL:X;")) reply.push_back(static_cast<std::uint8_t>(character));
    bench.handle->expectControlRequestTO(getDeviceID()).returns(reply);
    bench.printer->update1284DeviceID([&](bool, const auto& text) { CHECK(text == "MDL:X;"); });
}

TEST_CASE("a device ID that is not UTF-8 is treated as missing") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.handle->expectControlRequestTO(getDeviceID()).returns(Data{0, 4, 0xC3, 0x28});
    bench.printer->update1284DeviceID([&](bool found, const auto&) { CHECK(found == false); });
}

TEST_CASE("the first failed query of the interface ends reading the device ID with its own log line") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.handle->setAnswer("GetConfigurationValue", kIOReturnNoDevice);
    bench.printer->update1284DeviceID({});
    CHECK(bench.log.hasLogged("GetConfigurationValue() returned kIOReturnNoDevice [e00002c0]\n"));
    bench.handle->setAnswer("GetConfigurationValue", kIOReturnSuccess);
    bench.handle->setAnswer("GetInterfaceNumber", kIOReturnNoDevice);
    bench.printer->update1284DeviceID({});
    CHECK(bench.log.standardError ==
          std::vector<std::string>{"ERROR: GetInterfaceNumber() returned kIOReturnNoDevice [e00002c0]\n"});
}

TEST_CASE("languages are read high byte first, English is preferred, and a smaller sub-language wins") {
    PrinterBench bench;
    bench.handle->setDescriptor(0x0300, {10, 3, 0x04, 0x07, 0x10, 0x09, 0x08, 0x09, 0x04, 0x0C});
    bench.inlinePrinter();
    CHECK(bench.printer->langIds() == std::set<std::uint16_t>{0x0407, 0x1009, 0x0809, 0x040C});
    CHECK(bench.printer->langId() == 0x0809);
}

TEST_CASE("a language that the device does not have is not used") {
    PrinterBench bench;
    bench.handle->setDescriptor(0x0300, {6, 3, 0x04, 0x07, 0x04, 0x09});
    bench.inlinePrinter()->setLangId(0x1234);
    CHECK(bench.printer->langId() == 0x0409);
    bench.printer->setLangId(0x0407);
    CHECK(bench.printer->langId() == 0x0407);
}

TEST_CASE("a language table that cannot be read is requested again") {
    PrinterBench bench;
    bench.inlinePrinter();
    CHECK(bench.printer->langIds() == std::nullopt);
    bench.handle->setDescriptor(0x0300, {4, 3, 0x04, 0x09});
    CHECK(bench.printer->langId() == 0x0409);
}

TEST_CASE("an unresponsive device gets one descriptor request at its arrival, and another one on demand") {
    PrinterBench bench;
    bench.handle->setAnswer("ControlRequestTO", kIOUSBTransactionTimeout);
    arrive(bench);
    CHECK(timesAsked(bench, 0x0300) == 1);
    CHECK(bench.handle->count("ControlRequestTO") == 2); // including the one for its device ID
    CHECK(bench.printer->productUSB() == std::nullopt);
    bench.handle->setAnswer("ControlRequestTO", kIOReturnSuccess);
    bench.printer->getUSBProductString();
    CHECK(timesAsked(bench, 0x0300) == 2);
    CHECK(timesAsked(bench, 0x0302) == 1);
}

TEST_CASE("a device without a language table gets one request for it at its arrival, and its strings are still read") {
    PrinterBench bench;
    bench.handle->setString(1, u"ZUL");
    bench.handle->setString(2, u"VK14");
    bench.handle->setString(3, u"000042");
    arrive(bench);
    CHECK(timesAsked(bench, 0x0300) == 1);
    CHECK(bench.printer->descriptionUTF8() == "ZUL VK14 000042");
}

TEST_CASE("a string that is not returned ends the string requests of that arrival") {
    PrinterBench bench;
    bench.handle->setDescriptor(0x0300, {4, 3, 0x04, 0x09});
    bench.handle->expectControlRequestTO(getDescriptor(0x0300)).returns(Data{4, 3, 0x04, 0x09});
    bench.handle->expectControlRequestTO(getDescriptor(0x0302)).returns(kIOUSBTransactionTimeout);
    arrive(bench);
    CHECK(timesAsked(bench, 0x0302) == 1);
    CHECK(timesAsked(bench, 0x0303) == 0);
    CHECK(timesAsked(bench, 0x0301) == 0);
}

TEST_CASE("trailing zeros of a string descriptor are dropped, and one without characters yields no string") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.handle->setDescriptor(0x0305, {6, 3, 0x41, 0, 0, 0});
    CHECK(bench.printer->descriptorStringAtIndex(5) == "A");
    bench.handle->setDescriptor(0x0306, {2, 3});
    CHECK(bench.printer->descriptorStringAtIndex(6) == std::nullopt);
    bench.handle->setDescriptor(0x0307, {7, 3, 0x41, 0, 0x42, 0, 0x43});
    CHECK(bench.printer->descriptorStringAtIndex(7) == "AB");
}

TEST_CASE("a descriptor of the wrong type is logged, and text after a device qualifier is accepted") {
    PrinterBench bench;
    bench.inlinePrinter();
    Data descriptor(20, 0);
    descriptor[0] = 4;
    descriptor[1] = 6;
    const std::string text = "SN1";
    std::copy(text.begin(), text.end(), descriptor.begin() + 10);
    bench.handle->setDescriptor(0x0305, descriptor);
    CHECK(bench.printer->descriptorStringAtIndex(5) == "SN1");
    CHECK(bench.log.hasLogged("The device returned a string descriptor with the incorrect descriptor type(returned 6 "
                              "(should be 3))\n"));
    bench.handle->setDescriptor(0x0306, {4, 1, 0, 0});
    CHECK(bench.printer->descriptorStringAtIndex(6) == std::nullopt);
}

TEST_CASE("the USB strings are read product first, then serial number, then vendor, and the vendor is shortened") {
    PrinterBench bench;
    bench.handle->setString(1, u"Zul Imaging Company");
    bench.handle->setString(2, u"VK14");
    bench.handle->setString(3, u"000042");
    bench.inlinePrinter();
    CHECK(bench.printer->vendorUSB() == "ZUL");
    CHECK(bench.printer->productUSB() == "VK14");
    CHECK(bench.printer->serialNumberUSB() == "000042");
    CHECK(bench.printer->descriptionUTF8() == "ZUL VK14 000042");
    std::vector<std::string> got;
    for (const std::string& line : bench.log.systemLog) {
        if (line.starts_with("got USB")) got.push_back(line);
    }
    CHECK(got ==
          std::vector<std::string>{"got USB product:VK14", "got USB Serial Number:000042", "got USB vendor:ZUL"});
}

TEST_CASE("a string index of 0 means no string and causes no request") {
    PrinterBench bench;
    bench.handle->serialNumberStringIndex = 0;
    bench.inlinePrinter();
    CHECK(bench.printer->serialNumberUSB() == std::nullopt);
    CHECK(bench.log.hasLogged("got USB Serial Number:(null)"));
}

TEST_CASE("a string index that cannot be read is logged with the name of its call") {
    PrinterBench bench;
    bench.inlinePrinter();
    bench.handle->setAnswer("USBGetProductStringIndex", kIOReturnNoDevice);
    bench.printer->getUSBProductString();
    CHECK(bench.log.hasLogged("USBGetProductStringIndex() returned kIOReturnNoDevice\n"));
}

TEST_CASE("a printer's key is vendor, product and location in capitals") {
    PrinterBench bench;
    bench.handle->locationID = 0x1410ABCD;
    bench.inlinePrinter(0x8B01);
    CHECK(bench.printer->keyUSBdevice() == "2A718B011410ABCD");
    CHECK(bench.printer->idLocation() == "1410abcd");
    CHECK(bench.printer->idVendor() == "10865");
    CHECK(bench.printer->idProduct() == "35585");
}

TEST_CASE("stored device info is found by its device's key only") {
    PrinterBench bench;
    const auto info = TBUSBPrinter::deviceInfoForKey("one");
    info->set("fact", std::string("x"));
    CHECK(TBUSBPrinter::deviceInfoForKey("one") == info);
    CHECK(TBUSBPrinter::deviceInfoForKey("two")->count() == 0);
}

TEST_CASE("an immutable dictionary is not stored") {
    PrinterBench bench;
    const auto kept = TBUSBPrinter::deviceInfoForKey("one");
    TBUSBPrinter::setDeviceInfo(
        std::make_shared<DeviceInfo>(DeviceInfo::Entries{}, DeviceInfo::Mutability::isImmutable), "one");
    CHECK(TBUSBPrinter::deviceInfoForKey("one") == kept);
    const auto other = std::make_shared<DeviceInfo>();
    TBUSBPrinter::setDeviceInfo(other, "one");
    CHECK(TBUSBPrinter::deviceInfoForKey("one") == other);
    CHECK(bench.log.has("+[TBUSBPrinter setDeviceInfo:forKey:]:[one] : "));
}

TEST_CASE("the vendor's printer supports the vendor's identifiers") {
    CHECK(TBUSBPrinterZUL::supportedVendorIDs() == std::set<std::uint16_t>{0x2A71, 0x2B84});
    CHECK(TBUSBPrinterZUL::supportedProductIDs() == std::set<std::uint16_t>{3});
}

TEST_CASE("no part is found in an empty text") {
    CHECK(TBUSBPrinter::noninclusiveCaseInsensitiveSubstringFromString("", std::nullopt, std::nullopt) == std::nullopt);
    CHECK(TBUSBPrinter::noninclusiveCaseInsensitiveSubstringFromString("MFG:X;mdl:Y;", "MDL:", ";") == "Y");
}
