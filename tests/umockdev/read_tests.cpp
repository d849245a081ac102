// Bulk reads: whole packets on the wire, the caller's own size towards the caller.
#include "Bench.h"

#include <cerrno>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

using namespace zul;

namespace {

using Journal = std::vector<std::string>;

struct Read {
    IOReturn code = kIOReturnInvalid;
    std::string bytes;
};

Read read(IOUSBInterfaceInterface& handle, std::uint32_t size, std::uint32_t timeout = 5000,
          std::uint8_t pipe = kPipeIn) {
    std::vector<char> buffer(size + 1);
    Read result;
    std::uint32_t count = size;
    result.code = handle.ReadPipeTO(pipe, buffer.data(), count, timeout, timeout);
    REQUIRE(count <= size);
    result.bytes.assign(buffer.data(), count);
    return result;
}

/// A claimed handle; what was done before it does not count.
struct Reader {
    Bench bench;
    MockPrinter& printer = bench.plug();
    std::shared_ptr<IOUSBInterfaceInterface> handle = (bench.start(), bench.openHandle());
    Read get(std::uint32_t size, std::uint32_t timeout = 5000) { return read(*handle, size, timeout); }
};

} // namespace

TEST_CASE("a read asks for whole packets and reports a short one as it came") {
    Reader reader;
    reader.printer.sends("0000");
    const Read result = reader.get(8);
    CHECK(result.code == kIOReturnSuccess);
    CHECK(result.bytes == "0000");
    CHECK(reader.printer.journal() == Journal{"claim 0", "in 81 64"});
}

TEST_CASE("the empty packet that ends a full one belongs to it, not to the next answer") {
    Reader reader;
    reader.printer.sends(std::string(64, 'x'));
    reader.printer.sends("");
    reader.printer.sends("00000006");
    CHECK(reader.get(64).bytes == std::string(64, 'x'));
    CHECK(reader.get(8).bytes == "00000006");
}

TEST_CASE("a read of more than a packet asks for the next multiple of it") {
    Reader reader;
    reader.printer.sends(std::string(65, 'x'));
    CHECK(reader.get(65).bytes == std::string(65, 'x'));
    CHECK(reader.printer.journal().back() == "in 81 128");
}

TEST_CASE("a header and a body in one packet are two reads of which the second makes no transfer") {
    Reader reader;
    reader.printer.sends("0000000600000\r");
    CHECK(reader.get(8).bytes == "00000006");
    CHECK(reader.get(6).bytes == "00000\r");
    CHECK(reader.printer.journal() == Journal{"claim 0", "in 81 64"});
}

TEST_CASE("a header and a body in transfers of their own are two reads") {
    Reader reader;
    reader.printer.sends("00000006");
    reader.printer.sends("00000\r");
    CHECK(reader.get(8).bytes == "00000006");
    CHECK(reader.get(6).bytes == "00000\r");
    CHECK(reader.printer.journal() == Journal{"claim 0", "in 81 64", "in 81 64"});
}

TEST_CASE("what was kept of an ended transfer is not joined with the next one") {
    Reader reader;
    reader.printer.sends("header--ab");
    reader.printer.sends("next");
    CHECK(reader.get(8).bytes == "header--");
    CHECK(reader.get(20).bytes == "ab");
    CHECK(reader.get(4).bytes == "next");
}

TEST_CASE("what was kept of a transfer that continues is completed from it") {
    Reader reader;
    const std::string body(100, 'b');
    const std::string all = "00000100" + body;
    reader.printer.sends(all.substr(0, kPacket));
    reader.printer.sends(all.substr(kPacket));
    CHECK(reader.get(8).bytes == "00000100");
    CHECK(reader.get(100).bytes == body);
}

TEST_CASE("what was kept is dropped when the interface is closed") {
    Reader reader;
    reader.printer.sends("00000006kept");
    CHECK(reader.get(8).bytes == "00000006");
    REQUIRE(reader.handle->USBInterfaceClose() == kIOReturnSuccess);
    REQUIRE(reader.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    reader.printer.sends("new");
    CHECK(reader.get(8).bytes == "new");
}

TEST_CASE("a read of no bytes returns at once and makes no transfer") {
    Reader reader;
    const Read result = reader.get(0);
    CHECK(result.code == kIOReturnSuccess);
    CHECK(result.bytes.empty());
    CHECK(reader.printer.journal() == Journal{"claim 0"});
}

TEST_CASE("an empty packet is a read of no bytes") {
    Reader reader;
    reader.printer.sends("");
    const Read result = reader.get(8);
    CHECK(result.code == kIOReturnSuccess);
    CHECK(result.bytes.empty());
}

TEST_CASE("a read without an answer times out") {
    Reader reader;
    CHECK(reader.get(8, 20).code == kIOUSBTransactionTimeout);
}

TEST_CASE("a read that times out with all that was asked for is success") {
    Reader reader;
    reader.printer.sends("00000006", MockPrinter::kNeverEnds);
    const Read result = reader.get(8, 20);
    CHECK(result.code == kIOReturnSuccess);
    CHECK(result.bytes == "00000006");
}

TEST_CASE("a read that times out with less than was asked for is a time-out") {
    Reader reader;
    reader.printer.sends("0000", MockPrinter::kNeverEnds);
    CHECK(reader.get(8, 20).code == kIOUSBTransactionTimeout);
}

TEST_CASE("a stalled read gives pipe stalled, clears the halt once and is not repeated") {
    Reader reader;
    reader.printer.sends("", -EPIPE);
    reader.printer.sends("00000006");
    CHECK(reader.get(8).code == kIOUSBPipeStalled);
    CHECK(reader.printer.journal() == Journal{"claim 0", "in 81 64", "halt 81"});
    CHECK(reader.get(8).bytes == "00000006");
}

TEST_CASE("a packet that is longer than the pipe allows gives overrun") {
    Reader reader;
    reader.printer.sends(std::string(kPacket + 1, 'x'));
    CHECK(reader.get(8).code == kIOReturnOverrun);
}

TEST_CASE("a disturbed read of a device that is there gives not responding") {
    for (const int status : {-EPROTO, -EILSEQ, -ETIME, -ECOMM}) {
        CAPTURE(status);
        Reader reader;
        reader.printer.sends("", status);
        CHECK(reader.get(8).code == kIOReturnNotResponding);
    }
}

TEST_CASE("a read that the kernel has no memory for says so") {
    Reader reader;
    reader.printer.refuses(USBDEVFS_SUBMITURB, ENOMEM);
    CHECK(reader.get(8).code == kIOReturnNoMemory);
}

TEST_CASE("a read during which the device leaves gives no device, whichever error the system reports") {
    for (const int status : {-ESHUTDOWN, -ENODEV, -EPROTO}) {
        CAPTURE(status);
        Reader reader;
        reader.printer.vanishAtTransfer(0x81, status);
        CHECK(reader.get(8).code == kIOReturnNoDevice);
    }
}

TEST_CASE("a read of a device that the kernel has dropped but not yet reported gives no device") {
    Reader reader;
    reader.printer.vanish();
    CHECK(reader.get(8).code == kIOReturnNoDevice);
}

TEST_CASE("a read without a claim is an error and makes no transfer") {
    Bench bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    const auto handle = bench.handle();
    CHECK(read(*handle, 8).code == kIOReturnError);
    CHECK(printer.journal().empty());
}

TEST_CASE("a read of the control pipe or of a pipe that is not there gives unknown pipe") {
    Reader reader;
    CHECK(read(*reader.handle, 8, 100, 0).code == kIOUSBUnknownPipeErr);
    CHECK(read(*reader.handle, 8, 100, 3).code == kIOUSBUnknownPipeErr);
}

TEST_CASE("a read of the pipe that goes out is a bad argument") {
    Reader reader;
    CHECK(read(*reader.handle, 8, 100, kPipeOut).code == kIOReturnBadArgument);
}
