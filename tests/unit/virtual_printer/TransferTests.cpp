// Bulk transfers of embedded printers: their results, their duration, and the effect of a departure.
#include "unit/virtual_printer/BusBench.h"

namespace zul {

using std::chrono::milliseconds;

TEST_CASE("a reply is read as its header and its body, and unrequested bytes are kept for the next read") {
    BusBench bench;
    const auto handle = bench.openHandle();
    std::string text;
    REQUIRE(BusBench::write(*handle, frame("INFO  FVER")) == kIOReturnSuccess);
    CHECK(BusBench::read(*handle, text, 256) == kIOReturnSuccess);
    CHECK(text == "00000011");
    CHECK(BusBench::read(*handle, text, 4) == kIOReturnSuccess);
    CHECK(text == "VK14");
    CHECK(BusBench::read(*handle, text, 256) == kIOReturnSuccess);
    CHECK(text == " 01.60\r");
}

TEST_CASE("a read without a reply ends at its completion time-out") {
    BusBench bench;
    const auto handle = bench.openHandle();
    std::string text;
    CHECK(BusBench::read(*handle, text) == kIOUSBTransactionTimeout);
    CHECK(text.empty());
    CHECK(bench.elapsed() == milliseconds(5000));
}

TEST_CASE("transfers need the claim and the right pipe") {
    BusBench bench;
    const auto handle = bench.handle();
    std::string text;
    std::uint32_t size = 1;
    std::uint8_t byte = 0;
    CHECK(BusBench::write(*handle, frame("STATUS")) == kIOReturnError);
    CHECK(BusBench::read(*handle, text) == kIOReturnError);
    REQUIRE(handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(handle->ReadPipeTO(1, &byte, size, 1, 1) == kIOUSBUnknownPipeErr);
    CHECK(handle->WritePipeTO(2, &byte, 1, 1, 1) == kIOUSBUnknownPipeErr);
    IOUSBDevRequestTO request;
    CHECK(handle->ControlRequestTO(1, request) == kIOUSBUnknownPipeErr);
}

TEST_CASE("a stalled reply and a stalled command return the stall, and the next command is answered") {
    BusBench bench({"VK14,fault=stall@STATUS#1,fault=stall@TBL_CL#1"});
    const auto handle = bench.openHandle();
    std::string text;
    REQUIRE(BusBench::write(*handle, frame("STATUS")) == kIOReturnSuccess);
    CHECK(BusBench::read(*handle, text) == kIOUSBPipeStalled);
    CHECK(BusBench::write(*handle, frame("TBL_CL")) == kIOUSBPipeStalled);
    CHECK(BusBench::ask(*handle, "STATUS") == "00000006 00000\r");
}

TEST_CASE("a late reply wakes a read that waits for it") {
    BusBench bench({"VK14,fault=late@STATUS#1:1200"});
    const auto handle = bench.openHandle();
    CHECK(BusBench::ask(*handle, "STATUS") == "00000006 00000\r");
    CHECK(bench.elapsed() == milliseconds(1200));
}

TEST_CASE("a reply that comes after the read's time-out is found by the next read") {
    BusBench bench({"VK14,fault=late@FVER#1:6000"});
    const auto handle = bench.openHandle();
    CHECK(BusBench::ask(*handle, "INFO  FVER") == "(no header)");
    bench.advance(milliseconds(1500));
    CHECK(BusBench::ask(*handle, "STATUS") == "00000011 VK14 01.60\r");
}

TEST_CASE("resynchronizing a pipe drops pending data and data that arrives until the pipe is idle") {
    BusBench bench({"VK14,fault=late@FVER#1:6050"});
    const auto handle = bench.openHandle();
    REQUIRE(BusBench::write(*handle, frame("STATUS")) == kIOReturnSuccess); // its reply is not read
    REQUIRE(BusBench::ask(*handle, "INFO  FVER") == "00000006 00000\r");    // the reply to the query before
    bench.advance(milliseconds(6000));
    CHECK(handle->resynchronize(2) == kIOReturnSuccess);
    CHECK(BusBench::ask(*handle, "STATUS") == "00000006 00000\r");
}

TEST_CASE("a stalled pipe can be resynchronized") {
    BusBench bench({"VK14,fault=stall@STATUS#1"});
    const auto handle = bench.openHandle();
    REQUIRE(BusBench::write(*handle, frame("STATUS")) == kIOReturnSuccess);
    CHECK(handle->resynchronize(2) == kIOReturnSuccess);
    CHECK(BusBench::ask(*handle, "STATUS") == "00000006 00000\r");
}

TEST_CASE("only the IN pipe of a claimed, attached printer can be resynchronized") {
    BusBench bench;
    const auto handle = bench.handle();
    CHECK(handle->resynchronize(2) == kIOReturnError);
    REQUIRE(handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(handle->resynchronize(1) == kIOUSBUnknownPipeErr);
    CHECK(handle->holder() == InterfaceHolder{});
    bench.bus.unplug(0);
    CHECK(handle->resynchronize(2) == kIOReturnNoDevice);
}

TEST_CASE("a reset of the printer drops unread replies") {
    BusBench bench;
    const auto handle = bench.openHandle();
    std::shared_ptr<IOUSBDeviceInterface> device;
    REQUIRE(handle->GetDevice(device) == kIOReturnSuccess);
    REQUIRE(BusBench::write(*handle, frame("INFO  FVER")) == kIOReturnSuccess);
    CHECK(device->ResetDevice() == kIOReturnSuccess);
    CHECK(BusBench::ask(*handle, "STATUS") == "00000006 00000\r");

    REQUIRE(BusBench::write(*handle, frame("INFO  FVER")) == kIOReturnSuccess);
    IOUSBDevRequestTO softReset;
    softReset.bmRequestType = 0x21;
    softReset.bRequest = 2;
    CHECK(handle->ControlRequestTO(0, softReset) == kIOReturnSuccess);
    CHECK(BusBench::ask(*handle, "STATUS") == "00000006 00000\r");
}

TEST_CASE("a departure wakes a read that waits on the printer's queue") {
    BusBench bench;
    const auto handle = bench.openHandle();
    IOReturn code = kIOReturnSuccess;
    std::string text;
    bench.onQueue([&] { code = BusBench::read(*handle, text); });
    bench.advance(milliseconds(1000));
    CHECK(code == kIOReturnSuccess); // still waiting
    bench.bus.unplug(0);
    bench.settle();
    CHECK(code == kIOReturnNoDevice);
    CHECK(bench.elapsed() == milliseconds(1000));
}

TEST_CASE("a large write takes the time of the flash speed and reports its progress") {
    BusBench bench({"VK14,speed=1000000"});
    const auto handle = bench.openHandle();
    std::vector<std::uint32_t> steps;
    handle->setWriteProgress([&](std::uint32_t done, std::uint32_t total) {
        CHECK(total == 1000032);
        steps.push_back(done);
    });
    CHECK(BusBench::write(*handle, frame("TBL_WTCTRLD_UPDATE_CW", Data(1000000, 'x'))) == kIOReturnSuccess);
    CHECK(bench.elapsed() == milliseconds(1000));
    CHECK(steps == std::vector<std::uint32_t>{262144, 524288, 786432, 1000032});
}

TEST_CASE("a write that is too slow for its time-out ends with it") {
    BusBench bench({"VK14,speed=100000"});
    const auto handle = bench.openHandle();
    CHECK(BusBench::write(*handle, frame("TBL_WTCTRLD_UPDATE_CW", Data(1000000, 'x'))) == kIOUSBTransactionTimeout);
    CHECK(bench.elapsed() == milliseconds(5000));
    CHECK(bench.journal->commands().empty());
}

TEST_CASE("a departure ends a slow write at once") {
    BusBench bench({"VK14,speed=100000"});
    const auto handle = bench.openHandle();
    IOReturn code = kIOReturnSuccess;
    bench.onQueue([&] { code = BusBench::write(*handle, frame("TBL_WTCTRLD_UPDATE_CW", Data(1000000, 'x'))); });
    bench.advance(milliseconds(700));
    CHECK(code == kIOReturnSuccess); // still running
    bench.bus.unplug(0);
    bench.settle();
    CHECK(code == kIOReturnNoDevice);
    CHECK(bench.elapsed() == milliseconds(700));
}

TEST_CASE("a write that the printer accepted whole succeeds, also if the printer departs before it returns") {
    BusBench bench;
    const auto handle = bench.openHandle();
    handle->setWriteProgress([&](std::uint32_t done, std::uint32_t total) {
        if (done == total) bench.advance(milliseconds(500));
    });
    CHECK(BusBench::write(*handle, frame("FW_UPDFLASH_REWRITE")) == kIOReturnSuccess);
    CHECK(bench.events == Texts{"arrived 0x101", "left 0x101"});
}

TEST_CASE("an unplug during a payload fails the write, and the printer returns without the command") {
    BusBench bench({"VK14,fault=unplug@CTRLD_UPDATE#1"});
    const auto handle = bench.openHandle();
    CHECK(BusBench::write(*handle, frame("TBL_WTCTRLD_UPDATE_CW", Data(3000, 'x'))) == kIOReturnNoDevice);
    bench.drain();
    CHECK(bench.events == Texts{"arrived 0x101", "left 0x101", "arrived 0x102"});
    CHECK(bench.journal->commands().empty());
    CHECK(BusBench::ask(*bench.openHandle(), "STATUS") == "00000006 00000\r");
}

TEST_CASE("the interfaces of one printer are claimed separately and get their own replies") {
    BusBench bench({"VK14,interfaces=2"});
    REQUIRE(bench.tokens().size() == 2);
    const auto one = bench.openHandle(0);
    const auto other = bench.openHandle(1);
    std::string text;
    REQUIRE(BusBench::write(*one, frame("STATUS")) == kIOReturnSuccess);
    CHECK(BusBench::ask(*other, "INFO  FVER") == "00000011 VK14 01.60\r");
    CHECK(BusBench::read(*one, text) == kIOReturnSuccess);
    CHECK(text == "00000006");
    CHECK(one->USBInterfaceClose() == kIOReturnSuccess);
    CHECK(BusBench::ask(*other, "STATUS") == "00000006 00000\r");
    CHECK(other->USBInterfaceClose() == kIOReturnSuccess);
}

TEST_CASE("a command on one interface waits for the large write on the other") {
    BusBench bench({"VK14,interfaces=2,speed=1000000"});
    const auto one = bench.openHandle(0);
    const auto other = bench.openHandle(1);
    bench.onQueue([&] {
        REQUIRE(BusBench::write(*one, frame("TBL_WTCTRLD_UPDATE_CW", Data(1000000, 'x'))) == kIOReturnSuccess);
    });
    SerialQueue second("second", bench.clock);
    std::string answer;
    milliseconds answeredAt{0};
    bench.advance(milliseconds(100));
    second.async([&] {
        answer = BusBench::ask(*other, "STATUS");
        answeredAt = bench.elapsed();
    });
    bench.drain();
    CHECK(answer == "00000006 00000\r");
    CHECK(answeredAt >= milliseconds(1000));
    CHECK(bench.journal->commands() == Texts{"TBL_WTCTRLD_UPDATE_CW", "STATUS"});
}

} // namespace zul
