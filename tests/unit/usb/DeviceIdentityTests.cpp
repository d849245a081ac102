// Device IDs answered from the cache, and the key of a device.
#include "usb/libusb/DeviceIdentities.h"
#include "usb/libusb/InterfaceDescriptors.h"

#include <doctest/doctest.h>
#include <string>
#include <vector>

using namespace zul;

namespace {

IOUSBDevRequestTO deviceIDRequest(std::vector<unsigned char>& buffer) {
    IOUSBDevRequestTO request;
    request.bmRequestType = 0xA1;
    request.wValue = 1;
    request.wIndex = 0x0201;
    request.wLength = static_cast<std::uint16_t>(buffer.size());
    request.pData = buffer.data();
    return request;
}

DeviceIdentity identity() {
    DeviceIdentity identity;
    identity.value = 1;
    identity.index = 0x0201;
    identity.isMissing = false;
    identity.reply = {0, 5, 'a', 'b', 'c'};
    return identity;
}

} // namespace

TEST_CASE("a device ID answers only the request that it was read with") {
    std::vector<unsigned char> buffer(8);
    const DeviceIdentity known = identity();
    const IOUSBDevRequestTO request = deviceIDRequest(buffer);
    CHECK(known.answers(request));
    const auto differs = [&](auto change) {
        IOUSBDevRequestTO other = request;
        change(other);
        return !known.answers(other);
    };
    CHECK(differs([](IOUSBDevRequestTO& other) { other.bmRequestType = 0x21; }));
    CHECK(differs([](IOUSBDevRequestTO& other) { other.bRequest = 1; }));
    CHECK(differs([](IOUSBDevRequestTO& other) { other.wValue = 0; }));
    CHECK(differs([](IOUSBDevRequestTO& other) { other.wIndex = 0x0101; }));
}

TEST_CASE("a cached device ID is returned as the device would, cut to the requested size") {
    std::vector<unsigned char> buffer(8, 0xFF);
    IOUSBDevRequestTO request = deviceIDRequest(buffer);
    CHECK(identity().fill(request) == kIOReturnSuccess);
    CHECK(request.wLenDone == 5);
    CHECK(buffer == std::vector<unsigned char>{0, 5, 'a', 'b', 'c', 0xFF, 0xFF, 0xFF});
    buffer.assign(3, 0xFF);
    request = deviceIDRequest(buffer);
    CHECK(identity().fill(request) == kIOReturnSuccess);
    CHECK(request.wLenDone == 3);
    CHECK(buffer == std::vector<unsigned char>{0, 5, 'a'});
}

TEST_CASE("a missing device ID times out at once") {
    std::vector<unsigned char> buffer(8);
    IOUSBDevRequestTO request = deviceIDRequest(buffer);
    DeviceIdentity missing = identity();
    missing.isMissing = true;
    request.wLenDone = 7;
    CHECK(missing.fill(request) == kIOUSBTransactionTimeout);
    CHECK(request.wLenDone == 0);
}

TEST_CASE("a device's key is its vendor, product and location") {
    DeviceDescriptors device;
    device.vendor = 0x2A71;
    device.product = 3;
    device.busNumber = 1;
    device.ports = {2, 10};
    CHECK(device.key() == "2A710003012A0000");
}
