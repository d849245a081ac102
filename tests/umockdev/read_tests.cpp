// Bulk reads: whole packets on the wire, the requested size for the caller.
#include "MockMachine.h"

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

/// A claimed handle; earlier calls are not in the journal.
struct Reader {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    std::shared_ptr<IOUSBInterfaceInterface> handle = (bench.start(), bench.openHandle());
    Read get(std::uint32_t size, std::uint32_t timeout = 5000) { return read(*handle, size, timeout); }
};

} // namespace

TEST_CASE("a read requests whole packets and returns a short one unchanged") {
    Reader reader;
    reader.printer.sends("0000");
    const Read result = reader.get(8);
    CHECK(result.code == kIOReturnSuccess);
    CHECK(result.bytes == "0000");
    CHECK(reader.printer.journal() == Journal{"claim 0", "in 81 64"});
}

TEST_CASE("a zero-length packet after a full one belongs to it, not to the next reply") {
    Reader reader;
    reader.printer.sends(std::string(64, 'x'));
    reader.printer.sends("");
    reader.printer.sends("00000006");
    CHECK(reader.get(64).bytes == std::string(64, 'x'));
    CHECK(reader.get(8).bytes == "00000006");
}

TEST_CASE("a read of more than a packet requests the next multiple of it") {
    Reader reader;
    reader.printer.sends(std::string(65, 'x'));
    CHECK(reader.get(65).bytes == std::string(65, 'x'));
    CHECK(reader.printer.journal().back() == "in 81 128");
}

TEST_CASE("a header and a body in one packet are two reads, and the second makes no transfer") {
    Reader reader;
    reader.printer.sends("0000000600000\r");
    CHECK(reader.get(8).bytes == "00000006");
    CHECK(reader.get(6).bytes == "00000\r");
    CHECK(reader.printer.journal() == Journal{"claim 0", "in 81 64"});
}

TEST_CASE("a header and a body in separate transfers are two reads") {
    Reader reader;
    reader.printer.sends("00000006");
    reader.printer.sends("00000\r");
    CHECK(reader.get(8).bytes == "00000006");
    CHECK(reader.get(6).bytes == "00000\r");
    CHECK(reader.printer.journal() == Journal{"claim 0", "in 81 64", "in 81 64"});
}

TEST_CASE("buffered bytes of an ended transfer are not joined with the next one") {
    Reader reader;
    reader.printer.sends("header--ab");
    reader.printer.sends("next");
    CHECK(reader.get(8).bytes == "header--");
    CHECK(reader.get(20).bytes == "ab");
    CHECK(reader.get(4).bytes == "next");
}

TEST_CASE("buffered bytes of a transfer that continues are completed from it") {
    Reader reader;
    const std::string body(100, 'b');
    const std::string all = "00000100" + body;
    reader.printer.sends(all.substr(0, kPacket));
    reader.printer.sends(all.substr(kPacket));
    CHECK(reader.get(8).bytes == "00000100");
    CHECK(reader.get(100).bytes == body);
}

TEST_CASE("buffered bytes are dropped when the interface is closed") {
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

TEST_CASE("a zero-length packet is a read of no bytes") {
    Reader reader;
    reader.printer.sends("");
    const Read result = reader.get(8);
    CHECK(result.code == kIOReturnSuccess);
    CHECK(result.bytes.empty());
}

TEST_CASE("a read without a reply times out") {
    Reader reader;
    CHECK(reader.get(8, 20).code == kIOUSBTransactionTimeout);
}

TEST_CASE("a read that times out with all requested bytes is success") {
    Reader reader;
    reader.printer.sends("00000006", MockPrinter::kNeverEnds);
    const Read result = reader.get(8, 20);
    CHECK(result.code == kIOReturnSuccess);
    CHECK(result.bytes == "00000006");
}

TEST_CASE("a read that times out with fewer bytes than requested is a time-out") {
    Reader reader;
    reader.printer.sends("0000", MockPrinter::kNeverEnds);
    CHECK(reader.get(8, 20).code == kIOUSBTransactionTimeout);
}

TEST_CASE("a stalled read yields pipe stalled, clears the halt once and is not repeated") {
    Reader reader;
    reader.printer.sends("", -EPIPE);
    reader.printer.sends("00000006");
    CHECK(reader.get(8).code == kIOUSBPipeStalled);
    CHECK(reader.printer.journal() == Journal{"claim 0", "in 81 64", "halt 81"});
    CHECK(reader.get(8).bytes == "00000006");
}

TEST_CASE("a packet that is longer than the pipe allows yields overrun") {
    Reader reader;
    reader.printer.sends(std::string(kPacket + 1, 'x'));
    CHECK(reader.get(8).code == kIOReturnOverrun);
}

TEST_CASE("a failed read of an attached device yields not responding") {
    for (const int status : {-EPROTO, -EILSEQ, -ETIME, -ECOMM}) {
        CAPTURE(status);
        Reader reader;
        reader.printer.sends("", status);
        CHECK(reader.get(8).code == kIOReturnNotResponding);
    }
}

TEST_CASE("a read for which the kernel has no memory yields no memory") {
    Reader reader;
    reader.printer.refuses(USBDEVFS_SUBMITURB, ENOMEM);
    CHECK(reader.get(8).code == kIOReturnNoMemory);
}

TEST_CASE("a read during which the device is detached yields no device, whichever error the system reports") {
    for (const int status : {-ESHUTDOWN, -ENODEV, -EPROTO}) {
        CAPTURE(status);
        Reader reader;
        reader.printer.vanishAtTransfer(0x81, status);
        CHECK(reader.get(8).code == kIOReturnNoDevice);
    }
}

TEST_CASE("a read of a device whose removal is not reported yet yields no device") {
    Reader reader;
    reader.printer.vanish();
    CHECK(reader.get(8).code == kIOReturnNoDevice);
}

TEST_CASE("a read without a claim is an error and makes no transfer") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    const auto handle = bench.handle();
    CHECK(read(*handle, 8).code == kIOReturnError);
    CHECK(printer.journal().empty());
}

TEST_CASE("a read of the control pipe or of a missing pipe yields unknown pipe") {
    Reader reader;
    CHECK(read(*reader.handle, 8, 100, 0).code == kIOUSBUnknownPipeErr);
    CHECK(read(*reader.handle, 8, 100, 3).code == kIOUSBUnknownPipeErr);
}

TEST_CASE("a read of the OUT pipe is a bad argument") {
    Reader reader;
    CHECK(read(*reader.handle, 8, 100, kPipeOut).code == kIOReturnBadArgument);
}
