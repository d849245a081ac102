// The embedded bus: its services, their descriptors, arrivals and departures.
#include "unit/virtual_printer/BusBench.h"

namespace zul {

using std::chrono::milliseconds;

namespace {

struct ControlAnswer {
    IOReturn code = kIOReturnSuccess;
    Data bytes;
};

ControlAnswer control(IOUSBInterfaceInterface& handle, std::uint8_t type, std::uint8_t request, std::uint16_t value,
                      std::uint16_t index = 0, std::uint16_t length = 65535) {
    Data buffer(length);
    IOUSBDevRequestTO record;
    record.bmRequestType = type;
    record.bRequest = request;
    record.wValue = value;
    record.wIndex = index;
    record.wLength = length;
    record.pData = buffer.data();
    const IOReturn code = handle.ControlRequestTO(0, record);
    buffer.resize(record.wLenDone);
    return {code, buffer};
}

std::string stringAt(IOUSBInterfaceInterface& handle, std::uint8_t index, std::uint16_t language = 0x0409) {
    const auto answer = control(handle, 0x80, 6, static_cast<std::uint16_t>(0x0300 | index), language, 255);
    if (answer.code != kIOReturnSuccess) return "(refused)";
    REQUIRE(answer.bytes.size() >= 2);
    CHECK(answer.bytes[0] == answer.bytes.size());
    CHECK(answer.bytes[1] == 3);
    std::string text;
    for (std::size_t at = 2; at < answer.bytes.size(); at += 2) text += static_cast<char>(answer.bytes[at]);
    return text;
}

std::uint32_t locationOf(USBService& service) {
    std::uint32_t location = 0;
    CHECK(service.GetLocationID(location) == kIOReturnSuccess);
    return location;
}

} // namespace

// ---- descriptors ----------------------------------------------------------------------------------------------------

TEST_CASE("an embedded printer is a printer interface with a bulk pipe out and a bulk pipe in") {
    BusBench bench;
    REQUIRE(bench.tokens().size() == 1);
    const auto service = bench.service();
    std::uint8_t byte = 0;
    std::uint16_t word = 0;
    CHECK(service->GetInterfaceClass(byte) == kIOReturnSuccess);
    CHECK(byte == 7);
    CHECK(service->GetInterfaceSubClass(byte) == kIOReturnSuccess);
    CHECK(byte == 1);
    CHECK(service->GetDeviceVendor(word) == kIOReturnSuccess);
    CHECK(word == 0x2A71);
    CHECK(service->GetDeviceProduct(word) == kIOReturnSuccess);
    CHECK(word == 3);
    CHECK(service->GetNumEndpoints(byte) == kIOReturnSuccess);
    CHECK(byte == 2);
    PipeProperties out;
    PipeProperties in;
    CHECK(service->GetPipeProperties(1, out) == kIOReturnSuccess);
    CHECK(service->GetPipeProperties(2, in) == kIOReturnSuccess);
    CHECK(out.direction == PipeDirection::out);
    CHECK(in.direction == PipeDirection::in);
    CHECK(out.transferType == kUSBBulk);
    CHECK(in.transferType == kUSBBulk);
    CHECK(service->GetPipeProperties(0, out) == kIOUSBUnknownPipeErr);
    CHECK(service->GetPipeProperties(3, out) == kIOUSBUnknownPipeErr);
    CHECK(service->isVirtual());
    CHECK(service->nodePath().empty());
}

TEST_CASE("embedded printers get the free ports of the first bus, and then those of the next") {
    std::vector<std::string> descriptions(16, "VK14");
    descriptions[0] = "VK14,location=1-2";
    BusBench bench(descriptions);
    CHECK(locationOf(*bench.service(0)) == 0x01200000);
    CHECK(bench.service(0)->locationText() == "1-2");
    CHECK(locationOf(*bench.service(1)) == 0x01100000);
    CHECK(locationOf(*bench.service(2)) == 0x01300000);
    CHECK(locationOf(*bench.service(14)) == 0x01F00000);
    CHECK(locationOf(*bench.service(15)) == 0x02100000);
}

TEST_CASE("the device descriptor shows whether there is a serial number string") {
    BusBench bench({"VK14", "VK14,usb-serial=off"});
    const auto with = control(*bench.handle(0), 0x80, 6, 0x0100, 0, 18);
    CHECK(with.bytes == Data{18, 1, 0, 2, 0, 0, 0, 64, 0x71, 0x2A, 3, 0, 0, 1, 1, 2, 3, 1});
    const auto without = control(*bench.handle(1), 0x80, 6, 0x0100, 0, 18);
    REQUIRE(without.bytes.size() == 18);
    CHECK(without.bytes[16] == 0);
    CHECK(stringAt(*bench.handle(1), 3) == "(refused)");
}

TEST_CASE("strings are returned for any requested language") {
    BusBench bench({"VK14,serial=AB12"});
    const auto handle = bench.handle();
    CHECK(control(*handle, 0x80, 6, 0x0300, 0, 255).bytes == Data{4, 3, 0x09, 0x04});
    for (const std::uint16_t language : {0x0409, 0, 0x0411, 0xFFFF}) {
        CHECK(stringAt(*handle, 1, language) == "Zul Imaging Company");
        CHECK(stringAt(*handle, 2, language) == "VK14");
        CHECK(stringAt(*handle, 3, language) == "AB12");
    }
    CHECK(stringAt(*handle, 4) == "(refused)");
}

TEST_CASE("a string descriptor is cut where its length byte ends") {
    BusBench bench({"VK14,serial=" + std::string(200, '7')});
    CHECK(stringAt(*bench.handle(), 3) == std::string(126, '7'));
}

TEST_CASE("the device ID is preceded by a big-endian length that includes itself") {
    BusBench bench;
    const std::string text = "MFG:Zul Imaging Company;MDL:VK14;SERN:000001;";
    const auto answer = control(*bench.handle(), 0xA1, 0, 0, 0);
    CHECK(answer.code == kIOReturnSuccess);
    CHECK(answer.bytes == joined({0, static_cast<std::uint8_t>(text.size() + 2)}, dataFromText(text)));
    CHECK(control(*bench.handle(), 0xA1, 0, 0, 0, 10).bytes.size() == 10);
}

TEST_CASE("a printer without a device ID and unknown requests stall the control pipe") {
    BusBench bench({"VK14,id1284=off"});
    CHECK(control(*bench.handle(), 0xA1, 0, 0).code == kIOUSBPipeStalled);
    CHECK(control(*bench.handle(), 0xC0, 9, 0).code == kIOUSBPipeStalled);
}

TEST_CASE("a loader has the same device ID and location as the printer") {
    BusBench bench({"VK14,mode=loader"});
    const auto answer = control(*bench.handle(), 0xA1, 0, 0);
    CHECK(std::string(answer.bytes.begin() + 2, answer.bytes.end()) == "MFG:Zul Imaging Company;MDL:VK14;SERN:000001;");
    CHECK(locationOf(*bench.service()) == 0x01100000);
}

// ---- arrivals and departures ----------------------------------------------------------------------------------------

TEST_CASE("a printer that is added to a running bus arrives") {
    BusBench bench;
    bench.bus.add(described("VK18"));
    CHECK(bench.events == Texts{"arrived 0x101", "arrived 0x102"});
}

TEST_CASE("unplugging and plugging twice is the same as once") {
    BusBench bench;
    bench.bus.plug(0);
    bench.bus.unplug(0);
    bench.bus.unplug(0);
    bench.bus.plug(0);
    CHECK(bench.events == Texts{"arrived 0x101", "left 0x101", "arrived 0x102"});
}

TEST_CASE("handles from before a departure find no device, also when the printer is back") {
    BusBench bench;
    const auto handle = bench.openHandle();
    std::shared_ptr<IOUSBDeviceInterface> device;
    REQUIRE(handle->GetDevice(device) == kIOReturnSuccess);
    bench.bus.unplug(0);
    bench.bus.plug(0);
    std::string text;
    std::uint8_t index = 0;
    CHECK(BusBench::write(*handle, frame("STATUS")) == kIOReturnNoDevice);
    CHECK(BusBench::read(*handle, text) == kIOReturnNoDevice);
    CHECK(control(*handle, 0xA1, 0, 0).code == kIOReturnNoDevice);
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnNoDevice);
    CHECK(handle->USBInterfaceClose() == kIOReturnNoDevice);
    CHECK(handle->tryClaim() == kIOReturnNoDevice);
    CHECK(device->USBDeviceOpen() == kIOReturnNoDevice);
    CHECK(device->ResetDevice() == kIOReturnNoDevice);
    CHECK(device->USBDeviceReEnumerate(0) == kIOReturnNoDevice);
    CHECK(device->USBGetSerialNumberStringIndex(index) == kIOReturnNoDevice);
    CHECK(handle->GetDevice(device) == kIOReturnNoDevice);
    CHECK(device == nullptr);
    CHECK(BusBench::ask(*bench.openHandle(), "STATUS") == "00000006 00000\r");
}

TEST_CASE("a re-enumeration is a departure and then an arrival with a new token") {
    BusBench bench({"VK14,restart=400"});
    std::shared_ptr<IOUSBDeviceInterface> device;
    REQUIRE(bench.handle()->GetDevice(device) == kIOReturnSuccess);
    CHECK(device->USBDeviceReEnumerate(0) == kIOReturnSuccess);
    CHECK(bench.events == Texts{"arrived 0x101"}); // no event before the main queue runs
    bench.settle();
    CHECK(bench.events == Texts{"arrived 0x101", "left 0x101"});
    bench.advance(milliseconds(399));
    CHECK(bench.tokens().empty());
    bench.advance(milliseconds(1));
    CHECK(bench.events == Texts{"arrived 0x101", "left 0x101", "arrived 0x102"});
}

TEST_CASE("a printer restarts into its loader and from there into its new firmware") {
    BusBench bench({"VK14,restart=1000,program=500"});
    CHECK(BusBench::write(*bench.openHandle(), frame("FW_UPDFLASH_REWRITE")) == kIOReturnSuccess);
    bench.drain();
    const auto loader = bench.openHandle();
    CHECK(BusBench::write(*loader, frame("FW_UPDFLASH_PROGRAM", image("VK14 01.61"))) == kIOReturnSuccess);
    CHECK(BusBench::ask(*loader, "STATUS") == "00000008 FU00001\r");
    bench.drain();
    CHECK(BusBench::ask(*bench.openHandle(), "INFO  FVER") == "00000011 VK14 01.61\r");
    CHECK(bench.events == Texts{"arrived 0x101", "left 0x101", "arrived 0x102", "left 0x102", "arrived 0x103"});
    CHECK(locationOf(*bench.service()) == 0x01100000);
}

TEST_CASE("a VK-RZ7 restarts a third time by itself") {
    BusBench bench({"VK-RZ7,mode=loader"});
    CHECK(BusBench::write(*bench.openHandle(), frame("FW_UPDFLASH_PROGRAM", image("VK-RZ7 02.06"))) ==
          kIOReturnSuccess);
    bench.drain();
    CHECK(bench.events == Texts{"arrived 0x101", "left 0x101", "arrived 0x102", "left 0x102", "arrived 0x103"});
    CHECK(BusBench::ask(*bench.openHandle(), "INFO  FVER") == "00000013 VK-RZ7 02.06\r");
}

TEST_CASE("a restart can end on another port or never") {
    BusBench bench({"VK14,fault=elsewhere@REWRITE#1", "VK14,fault=never-back@REWRITE#1"});
    CHECK(BusBench::write(*bench.openHandle(0), frame("FW_UPDFLASH_REWRITE")) == kIOReturnSuccess);
    CHECK(BusBench::write(*bench.openHandle(1), frame("FW_UPDFLASH_REWRITE")) == kIOReturnSuccess);
    bench.drain();
    REQUIRE(bench.tokens().size() == 1);
    CHECK(locationOf(*bench.service()) != 0x01100000);
    bench.bus.plug(1);
    CHECK(bench.tokens().size() == 2);
}

TEST_CASE("a printer that is unplugged during its restart is detached until it is plugged in") {
    BusBench bench({"VK14,restart=1000"});
    CHECK(BusBench::write(*bench.openHandle(), frame("FW_UPDFLASH_REWRITE")) == kIOReturnSuccess);
    bench.advance(milliseconds(500));
    REQUIRE(bench.tokens().empty());
    bench.bus.unplug(0);
    bench.drain();
    CHECK(bench.tokens().empty());
    bench.bus.plug(0);
    CHECK(BusBench::ask(*bench.openHandle(), "STATUS") == "00000008 FU00001\r");
}

TEST_CASE("a return that a plug has overtaken does not shorten a later restart") {
    BusBench bench({"VK14,restart=1000"});
    std::shared_ptr<IOUSBDeviceInterface> device;
    REQUIRE(bench.handle()->GetDevice(device) == kIOReturnSuccess);
    REQUIRE(device->USBDeviceReEnumerate(0) == kIOReturnSuccess);
    bench.settle();
    bench.bus.unplug(0);
    bench.bus.plug(0);
    bench.advance(milliseconds(800));
    REQUIRE(bench.handle()->GetDevice(device) == kIOReturnSuccess);
    REQUIRE(device->USBDeviceReEnumerate(0) == kIOReturnSuccess);
    bench.advance(milliseconds(999)); // the first return would have been at 1000
    CHECK(bench.tokens().empty());
    bench.advance(milliseconds(1));
    CHECK(bench.tokens().size() == 1);
}

TEST_CASE("a stopped bus posts no more blocks") {
    BusBench bench({"VK14,restart=1000"});
    CHECK(BusBench::write(*bench.openHandle(), frame("FW_UPDFLASH_REWRITE")) == kIOReturnSuccess);
    bench.advance(milliseconds(500));
    bench.bus.stop();
    bench.clock.sleepFor(milliseconds(2000)); // the return is due meanwhile
    CHECK(!bench.mainQueue.runPending());
    CHECK(bench.events == Texts{"arrived 0x101", "left 0x101"});
}

TEST_CASE("a printer that is unplugged by its own announcement leaves no service on the bus") {
    BusBench bench(std::vector<std::string>{});
    const auto iterator = bench.port.addMatchingNotification(ServiceNotification::matched, {"IOUSBInterface", 7, 1},
                                                             [&](ServiceIterator& arrived) {
                                                                 while (arrived.next() != 0) bench.bus.unplug(0);
                                                             });
    CHECK(iterator->next() == 0);
    bench.bus.add(described("VK14,interfaces=2"));
    bench.settle();
    CHECK(bench.tokens().empty());
    CHECK(bench.events == std::vector<std::string>{"arrived 0x101", "left 0x101"});
}

} // namespace zul
