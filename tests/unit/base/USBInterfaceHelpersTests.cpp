// Reading of strings, device IDs and descriptors, with a scripted handle.
#include "Classes/USBInterfaceHelpers.h"
#include "support/LogCapture.h"
#include "support/ScriptedInterface.h"

#include <doctest/doctest.h>

using namespace zul;

namespace {

constexpr std::uint16_t kDeviceDescriptor = 0x0100;
constexpr std::uint16_t kLanguages = 0x0300;

Data deviceDescriptor(std::uint8_t manufacturer, std::uint8_t product, std::uint8_t serialNumber) {
    Data bytes(18, 0);
    bytes[0] = 18;
    bytes[1] = 1;
    bytes[14] = manufacturer;
    bytes[15] = product;
    bytes[16] = serialNumber;
    return bytes;
}

Data languageTable(std::initializer_list<std::uint8_t> entries) {
    Data bytes{static_cast<std::uint8_t>(2 + entries.size()), 3};
    bytes.insert(bytes.end(), entries);
    return bytes;
}

// The result of reading a string descriptor of these bytes.
struct StringRead {
    explicit StringRead(Data descriptor) {
        ScriptedInterface device;
        device.expectControlRequestTO(getDescriptor(kLanguages)).returns(languageTable({0x09, 0x04}));
        device.expectControlRequestTO(getDescriptor(0x0305)).returns(std::move(descriptor));
        code = usbInterfaceGetDescriptorStringCopy(&device, 5, &text);
    }
    IOReturn code;
    std::optional<std::string> text;
};

// The language of the string request after this table.
std::uint16_t languageAfter(Data table, IOReturn code = kIOReturnSuccess) {
    ScriptedInterface device;
    device.expectControlRequestTO(getDescriptor(kLanguages)).returns(std::move(table), code);
    device.expectControlRequestTO(getDescriptor(0x0305)).returns(stringDescriptor(u"x"));
    std::optional<std::string> text;
    CHECK(usbInterfaceGetDescriptorStringCopy(&device, 5, &text) == kIOReturnSuccess);
    return device.journal().back().request.wIndex;
}

} // namespace

TEST_CASE("the device descriptor is one standard request with time-outs of 100 ms") {
    ScriptedInterface device;
    device.expectControlRequestTO(getDescriptor(kDeviceDescriptor)).returns(deviceDescriptor(1, 2, 3));
    Data buffer(18);
    CHECK(usbInterfaceGetDeviceDescriptor(&device, buffer.data(), 18) == kIOReturnSuccess);
    CHECK(buffer == deviceDescriptor(1, 2, 3));
    CHECK(device.traffic() == std::vector<std::string>{"ControlRequestTO 80 06 0100 0000, 18 bytes, 100/100 ms"});
}

TEST_CASE("a device descriptor read without a buffer or length is a bad argument, and logged") {
    ScriptedInterface device;
    LogCapture capture;
    Data buffer(18);
    CHECK(usbInterfaceGetDeviceDescriptor(nullptr, buffer.data(), 18) == kIOReturnBadArgument);
    CHECK(usbInterfaceGetDeviceDescriptor(&device, nullptr, 18) == kIOReturnBadArgument);
    CHECK(usbInterfaceGetDeviceDescriptor(&device, buffer.data(), 0) == kIOReturnBadArgument);
    CHECK(capture.systemLog ==
          std::vector<std::string>(3, "Passed a NULL pointer or zero length into usbInterfaceGetDeviceDescriptor.\n"));
}

TEST_CASE("the string indices come from the device descriptor, each only if requested") {
    ScriptedInterface device;
    device.answerByDefault();
    device.setDescriptor(kDeviceDescriptor, deviceDescriptor(4, 5, 6));
    std::uint8_t manufacturer = 0;
    std::uint8_t product = 0;
    std::uint8_t serialNumber = 0;
    CHECK(usbInterfaceGetiDeviceIndices(&device, &manufacturer, &product, &serialNumber) == kIOReturnSuccess);
    CHECK(manufacturer == 4);
    CHECK(product == 5);
    CHECK(serialNumber == 6);
    CHECK(usbInterfaceGetiDeviceIndices(&device, nullptr, nullptr, nullptr) == kIOReturnSuccess);
}

TEST_CASE("without an interface the string indices are refused, and the requested ones are 0") {
    std::uint8_t manufacturer = 9;
    std::uint8_t product = 9;
    std::uint8_t serialNumber = 9;
    CHECK(usbInterfaceGetiDeviceIndices(nullptr, &manufacturer, &product, &serialNumber) == kIOReturnBadArgument);
    CHECK(manufacturer == 0);
    CHECK(product == 0);
    CHECK(serialNumber == 0);
    CHECK(usbInterfaceGetiDeviceIndices(nullptr, nullptr, nullptr, nullptr) == kIOReturnBadArgument);
}

TEST_CASE("a device descriptor of 8 instead of 18 bytes is an underrun and all three indices are 0") {
    ScriptedInterface device;
    Data half = deviceDescriptor(4, 5, 6);
    half.resize(8);
    device.expectControlRequestTO(getDescriptor(kDeviceDescriptor)).returns(half);
    std::uint8_t manufacturer = 9;
    std::uint8_t product = 9;
    std::uint8_t serialNumber = 9;
    CHECK(usbInterfaceGetiDeviceIndices(&device, &manufacturer, &product, &serialNumber) == kIOReturnUnderrun);
    CHECK(manufacturer == 0);
    CHECK(product == 0);
    CHECK(serialNumber == 0);
}

TEST_CASE("the code of a failed request is returned, whatever its length") {
    ScriptedInterface device;
    device.expectControlRequestTO(getDescriptor(kDeviceDescriptor)).returns(kIOUSBPipeStalled);
    std::uint8_t product = 9;
    CHECK(usbInterfaceGetiDeviceIndices(&device, nullptr, &product, nullptr) == kIOUSBPipeStalled);
    CHECK(product == 0);
}

TEST_CASE("a string is two requests, languages and text, with time-outs of 1 and 0 ms") {
    ScriptedInterface device;
    device.expectControlRequestTO(getDescriptor(kLanguages)).returns(languageTable({0x09, 0x04}));
    device.expectControlRequestTO(getDescriptor(0x0303)).returns(stringDescriptor(u"A\u20AC"));
    std::optional<std::string> text = "before";
    CHECK(usbInterfaceGetDescriptorStringCopy(&device, 3, &text) == kIOReturnSuccess);
    CHECK(text == "A\xE2\x82\xAC");
    CHECK(device.traffic() == std::vector<std::string>{"ControlRequestTO 80 06 0300 0000, 256 bytes, 1/0 ms",
                                                       "ControlRequestTO 80 06 0303 0409, 256 bytes, 1/0 ms"});
}

TEST_CASE("a string request without a buffer or with index 0 is a bad argument, logged, and changes no output") {
    ScriptedInterface device;
    LogCapture capture;
    std::optional<std::string> text = "before";
    CHECK(usbInterfaceGetDescriptorStringCopy(nullptr, 1, &text) == kIOReturnBadArgument);
    CHECK(usbInterfaceGetDescriptorStringCopy(&device, 1, nullptr) == kIOReturnBadArgument);
    CHECK(usbInterfaceGetDescriptorStringCopy(&device, 0, &text) == kIOReturnBadArgument);
    CHECK(text == "before");
    CHECK(
        capture.systemLog ==
        std::vector<std::string>(3, "Passed a NULL pointer or zero index into usbInterfaceGetDescriptorStringCopy.\n"));
}

TEST_CASE("a table in the standard order yields its first language") {
    CHECK(languageAfter(languageTable({0x09, 0x04})) == 0x0409);
    CHECK(languageAfter(languageTable({0x07, 0x04, 0x09, 0x04})) == 0x0407);
}

TEST_CASE("a pair with 09 in its second byte is taken as the language, up to a pair that begins with 04") {
    CHECK(languageAfter(languageTable({0x07, 0x08, 0x04, 0x09, 0x08, 0x09})) == 0x0409);
    CHECK(languageAfter(languageTable({0x08, 0x09, 0x0C, 0x09})) == 0x0C09);
    CHECK(languageAfter(languageTable({0x04, 0x08, 0x0C, 0x09})) == 0x0804);
}

TEST_CASE("without a readable language table the language is 0") {
    CHECK(languageAfter({}, kIOUSBPipeStalled) == 0);
    CHECK(languageAfter({4, 3, 9}) == 0);
}

TEST_CASE("a language table that announces 255 bytes is read no further than the buffer") {
    Data table(256, 0x01);
    table[0] = 0xFF;
    CHECK(languageAfter(table) == 0x0101);
}

TEST_CASE("a string descriptor without characters yields no string") {
    const StringRead read({2, 3});
    CHECK(read.code == kIOReturnSuccess);
    CHECK_FALSE(read.text);
}

TEST_CASE("zero code units at the end of a string are dropped") {
    CHECK(StringRead({6, 3, 0x41, 0x00, 0x00, 0x00}).text == "A");
    CHECK_FALSE(StringRead({6, 3, 0x00, 0x00, 0x00, 0x00}).text);
}

TEST_CASE("a last character whose low byte is zero is dropped, too") {
    CHECK(StringRead({6, 3, 0x41, 0x00, 0x00, 0x01}).text == "A");
}

TEST_CASE("a string of odd length loses its last byte") {
    CHECK(StringRead({5, 3, 0x41, 0x00, 0x42}).text == "A");
}

TEST_CASE("a string shorter than announced ends with its bytes") {
    CHECK(StringRead({0xFF, 3, 0x41, 0x00}).text == "A");
}

TEST_CASE("a string descriptor that announces 0 or 1 byte yields no string") {
    CHECK_FALSE(StringRead({0, 3, 0x41, 0x00}).text);
    CHECK_FALSE(StringRead({1, 3, 0x41, 0x00}).text);
}

TEST_CASE("a failed string request clears the string and returns its code") {
    ScriptedInterface device;
    device.answerByDefault();
    std::optional<std::string> text = "before";
    CHECK(usbInterfaceGetDescriptorStringCopy(&device, 3, &text) == kIOUSBPipeStalled);
    CHECK_FALSE(text);
}

TEST_CASE("the serial number is the device's own string") {
    ScriptedInterface device;
    device.answerByDefault();
    device.setDescriptor(kDeviceDescriptor, deviceDescriptor(1, 2, 3));
    device.setDescriptor(kLanguages, languageTable({0x09, 0x04}));
    device.setString(3, u"SN0042");
    std::optional<std::string> text;
    CHECK(usbInterfaceCreateSerialNumberString(&device, &text) == kIOReturnSuccess);
    CHECK(text == "SN0042");
    CHECK(device.count("GetDeviceVendor") == 0);
}

TEST_CASE("a device whose serial-number index is 0 gets the synthetic serial number") {
    ScriptedInterface device;
    device.answerByDefault();
    device.setDescriptor(kDeviceDescriptor, deviceDescriptor(1, 2, 0));
    device.vendor = 0x1234;
    device.product = 1;
    device.releaseNumber = 0x0100;
    device.locationID = 0x14100000;
    std::optional<std::string> text;
    CHECK(usbInterfaceCreateSerialNumberString(&device, &text) == kIOReturnSuccess);
    CHECK(text == "123400010100;*LOC:14100000");
    std::vector<std::string> calls;
    for (const JournalEntry& entry : device.journal()) calls.push_back(entry.call);
    CHECK(calls == std::vector<std::string>{"ControlRequestTO", "GetDeviceVendor", "GetDeviceProduct", "GetLocationID",
                                            "GetDeviceReleaseNumber"});
}

TEST_CASE("a serial-number string that cannot be read is reported and replaced by the synthetic one") {
    ScriptedInterface device;
    LogCapture capture;
    device.answerByDefault();
    device.setDescriptor(kDeviceDescriptor, deviceDescriptor(1, 2, 3));
    std::optional<std::string> text;
    CHECK(usbInterfaceCreateSerialNumberString(&device, &text) == kIOReturnSuccess);
    CHECK(text == "2A7100030100;*LOC:14100000");
    CHECK(capture.standardError ==
          std::vector<std::string>{"ERROR: usbInterfaceGetDescriptorStringCopy returned [-536854449]\n"});
}

TEST_CASE("a truncated serial-number string without text is reported and replaced by the synthetic one") {
    ScriptedInterface device;
    LogCapture capture;
    device.expectControlRequestTO(getDescriptor(kDeviceDescriptor)).returns(deviceDescriptor(1, 2, 3));
    device.expectControlRequestTO(getDescriptor(kLanguages)).returns(languageTable({0x09, 0x04}));
    device.expectControlRequestTO(getDescriptor(0x0303)).returns(kIOReturnOverrun);
    std::optional<std::string> text;
    CHECK(usbInterfaceCreateSerialNumberString(&device, &text) == kIOReturnSuccess);
    CHECK(
        capture.standardError ==
        std::vector<std::string>{"ERROR: usbInterfaceGetDescriptorStringCopy returned a truncated string[-536870168]\n"
                                 "This USB device may be out of spec -- proceed with caution.\n"});
    CHECK(text == "2A7100030100;*LOC:14100000");
}

TEST_CASE("indices that cannot be read are logged, and the serial number is the synthetic one") {
    ScriptedInterface device;
    LogCapture capture;
    device.answerByDefault();
    std::optional<std::string> text;
    CHECK(usbInterfaceCreateSerialNumberString(&device, &text) == kIOReturnSuccess);
    CHECK(text == "2A7100030100;*LOC:14100000");
    CHECK(capture.hasLogged("usbInterfaceGetiDeviceIndices returned kIOUSBPipeStalled [e000404f]\n"));
}

TEST_CASE("the first unavailable value of a synthetic serial number is reported and ends its creation") {
    const std::vector<std::string> calls{"GetDeviceVendor", "GetDeviceProduct", "GetLocationID",
                                         "GetDeviceReleaseNumber"};
    for (std::size_t failing = 0; failing < calls.size(); ++failing) {
        CAPTURE(calls[failing]);
        ScriptedInterface device;
        LogCapture capture;
        device.answerByDefault();
        device.setDescriptor(kDeviceDescriptor, deviceDescriptor(1, 2, 0));
        device.setAnswer(calls[failing], kIOReturnNoDevice);
        std::optional<std::string> text = "before";
        CHECK(usbInterfaceCreateSerialNumberString(&device, &text) == kIOReturnNoDevice);
        CHECK_FALSE(text);
        CHECK(capture.standardError ==
              std::vector<std::string>{"ERROR: calling " + calls[failing] + " returned kIOReturnNoDevice\n"});
        CHECK(device.journal().size() == 1 + failing + 1);
    }
}

TEST_CASE("a serial number request without a result pointer is a bad argument and clears the string") {
    ScriptedInterface device;
    std::optional<std::string> text = "before";
    CHECK(usbInterfaceCreateSerialNumberString(nullptr, &text) == kIOReturnBadArgument);
    CHECK_FALSE(text);
    CHECK(usbInterfaceCreateSerialNumberString(&device, nullptr) == kIOReturnBadArgument);
}

TEST_CASE("resetting a device opens and re-enumerates it and does not close it") {
    ScriptedInterface device;
    LogCapture capture;
    device.expectGetDevice();
    device.expect("USBDeviceOpen");
    device.expect("USBDeviceReEnumerate");
    CHECK(usbInterfaceResetUSBDevice(&device) == kIOReturnSuccess);
    CHECK(device.journal().back().size == 0); // no options
    REQUIRE(capture.systemLog.size() == 2);
    CHECK(capture.systemLog[0].starts_with("attempting to reset USB device with interface [0x"));
    CHECK(capture.systemLog[1].starts_with("ReEnumerating USB device [0x"));
}

TEST_CASE("a missing device handle is reported on standard error, and the device is not reset") {
    ScriptedInterface device;
    LogCapture capture;
    device.expectGetDevice().returns(kIOReturnNoResources);
    CHECK(usbInterfaceResetUSBDevice(&device) == kIOReturnNoResources);
    CHECK(capture.standardError ==
          std::vector<std::string>{"ERROR: IOCreatePlugInInterfaceForService() returned [-536870210]\n"});
    CHECK(usbInterfaceResetUSBDevice(nullptr) == kIOReturnBadArgument);
}

TEST_CASE("a device that cannot be opened is not re-enumerated") {
    ScriptedInterface device;
    LogCapture capture;
    device.expectGetDevice();
    device.expect("USBDeviceOpen").returns(kIOReturnExclusiveAccess);
    CHECK(usbInterfaceResetUSBDevice(&device) == kIOReturnExclusiveAccess);
}

TEST_CASE("a failed re-enumeration is logged by name") {
    ScriptedInterface device;
    LogCapture capture;
    device.answerByDefault();
    device.setAnswer("USBDeviceReEnumerate", kIOReturnNotResponding);
    CHECK(usbInterfaceResetUSBDevice(&device) == kIOReturnNotResponding);
    CHECK(capture.hasLogged("Failed to reenumerate the device: [kIOReturnNotResponding]\n"));
}

TEST_CASE("a value is cut out between prefix and terminator, with or without them") {
    const std::string text = "MFG:X;MDL:Y;";
    const auto cut = TBCFStringCreateSubstringFromPrefixToTerminatorWithOptions;
    CHECK(TBCFStringCreateSubstringFromPrefixToTerminator(text, "MDL:", ";") == "Y");
    CHECK(cut(text, "MDL:", ";", CompareOptions::none, Marks::included) == "MDL:Y;");
    CHECK_FALSE(TBCFStringCreateSubstringFromPrefixToTerminator("MFG:X;MDL:Y", "MDL:", ";"));
    CHECK_FALSE(TBCFStringCreateSubstringFromPrefixToTerminator(text, "SN:", ";"));
    CHECK_FALSE(TBCFStringCreateSubstringFromPrefixToTerminator(std::nullopt, "MDL:", ";"));
}

TEST_CASE("without a prefix the cut begins at the start, without a terminator it goes to the end") {
    const std::string text = "MFG:X;MDL:Y;";
    CHECK(TBCFStringCreateSubstringFromPrefixToTerminator(text, std::nullopt, ";") == "MFG:X");
    CHECK(TBCFStringCreateSubstringFromPrefixToTerminator(text, "MDL:", std::nullopt) == "Y;");
    CHECK(TBCFStringCreateSubstringFromPrefixToTerminator(text, std::nullopt, std::nullopt) == text);
}

TEST_CASE("the plain cut ignores case, the other one as its options say") {
    CHECK(TBCFStringCreateSubstringFromPrefixToTerminator("mdl:Y;", "MDL:", ";") == "Y");
    CHECK_FALSE(TBCFStringCreateSubstringFromPrefixToTerminatorWithOptions("mdl:Y;", "MDL:", ";", CompareOptions::none,
                                                                           Marks::excluded));
}

TEST_CASE("the terminator is searched after the prefix") {
    CHECK(TBCFStringCreateSubstringFromPrefixToTerminator(";a:;", "a:", ";") == "");
}

TEST_CASE("swapping the bytes of 16 bits twice restores them") {
    CHECK(OSSwapInt16(0x1234) == 0x3412);
    CHECK(OSSwapInt16(OSSwapInt16(0xFF00)) == 0xFF00);
}
