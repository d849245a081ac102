// The scripted interface: a test that relies on it must fail when the calls differ. should_fail inverts the result.
#include "support/ScriptedInterface.h"

#include <doctest/doctest.h>

using namespace zul;

namespace {
IOReturn write(ScriptedInterface& device, unsigned pipe, const Data& data) {
    return device.WritePipeTO(static_cast<std::uint8_t>(pipe), data.data(), static_cast<std::uint32_t>(data.size()),
                              5000, 6000);
}
} // namespace

TEST_CASE("an expected call that is not made fails the test" * doctest::should_fail()) {
    ScriptedInterface device;
    device.expectUSBInterfaceOpenSeize();
}

TEST_CASE("a call that is not in the script fails the test" * doctest::should_fail()) {
    ScriptedInterface device;
    CHECK(device.USBInterfaceOpenSeize() == kIOReturnNotResponding);
}

TEST_CASE("calls in another order than the script's fail the test" * doctest::should_fail()) {
    ScriptedInterface device;
    device.expectUSBInterfaceOpenSeize();
    (void)device.USBInterfaceClose();
    (void)device.USBInterfaceOpenSeize();
}

TEST_CASE("other bytes than the script's fail the test" * doctest::should_fail()) {
    ScriptedInterface device;
    device.expectWritePipeTO(1, Data{1, 2});
    (void)write(device, 1, {1, 3});
}

TEST_CASE("another pipe than the script's fails the test" * doctest::should_fail()) {
    ScriptedInterface device;
    device.expectWritePipeTO(1, Data{1});
    (void)write(device, 2, {1});
}

TEST_CASE("other time-outs than the script's fail the test" * doctest::should_fail()) {
    ScriptedInterface device;
    device.expectWritePipeTO(1, Data{1}).withTimeouts(5000, 5000);
    (void)write(device, 1, {1});
}

TEST_CASE("a script is answered in order, never with more bytes than requested, and recorded with its time-outs") {
    ScriptedInterface device;
    device.expectUSBInterfaceOpenSeize();
    device.expectWritePipeTO(1, Data{1, 2}).withTimeouts(5000, 6000).returns(kIOReturnTimeout);
    device.expectReadPipeTO(2, {7, 8, 9});
    std::uint8_t buffer[2] = {};
    std::uint32_t size = 2;
    CHECK(device.USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(device.isOpen());
    CHECK(write(device, 1, {1, 2}) == kIOReturnTimeout);
    CHECK(device.ReadPipeTO(2, buffer, size, 1, 2) == kIOReturnSuccess);
    CHECK(size == 2);
    CHECK(buffer[1] == 8);
    CHECK(device.traffic() == std::vector<std::string>{"USBInterfaceOpenSeize",
                                                       "WritePipeTO pipe 1, 2 bytes, 5000/6000 ms",
                                                       "ReadPipeTO pipe 2, 2 bytes, 1/2 ms"});
}

TEST_CASE("a fault hits exactly the call of its number") {
    ScriptedInterface device;
    device.answerByDefault();
    device.setFault(2, kIOReturnNoDevice);
    std::uint16_t vendor = 0;
    CHECK(device.USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(device.GetDeviceVendor(vendor) == kIOReturnSuccess); // part of the descriptors: not counted
    CHECK(write(device, 1, {1}) == kIOReturnNoDevice);
    CHECK(write(device, 1, {1}) == kIOReturnSuccess);
}

TEST_CASE("resynchronizing a pipe is recorded and drops the pending replies") {
    ScriptedInterface device;
    device.answerByDefault();
    device.enqueueRead({1, 2, 3});
    CHECK(device.resynchronize(2) == kIOReturnSuccess);
    std::uint8_t buffer[3] = {};
    std::uint32_t size = 3;
    CHECK(device.ReadPipeTO(2, buffer, size, 1, 2) == kIOUSBTransactionTimeout);
    CHECK(device.traffic() == std::vector<std::string>{"resynchronize pipe 2", "ReadPipeTO pipe 2, 3 bytes, 1/2 ms"});
}

TEST_CASE("the holder is the one that the test has set if the call succeeds") {
    ScriptedInterface device;
    device.interfaceHolder.program = "cups";
    device.expect("holder");
    device.expect("holder").returns(kIOReturnNoDevice);
    CHECK(device.holder().program == "cups");
    CHECK(device.holder() == InterfaceHolder{});
}
