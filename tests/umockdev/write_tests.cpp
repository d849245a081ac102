// Bulk writes: pieces under one deadline.
#include "MockMachine.h"

#include <cerrno>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

using namespace zul;

namespace {

using Journal = std::vector<std::string>;

constexpr std::uint32_t kPiece = 256 * 1024;

struct Writer {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    std::shared_ptr<IOUSBInterfaceInterface> handle = (bench.start(), bench.openHandle());

    IOReturn put(const std::string& bytes, std::uint32_t timeout = 5000, std::uint8_t pipe = kPipeOut) {
        return handle->WritePipeTO(pipe, bytes.data(), static_cast<std::uint32_t>(bytes.size()), timeout, timeout);
    }
};

std::string pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}

} // namespace

TEST_CASE("a write sends its bytes unchanged") {
    Writer writer;
    CHECK(writer.put("frame") == kIOReturnSuccess);
    CHECK(writer.printer.received() == "frame");
    CHECK(writer.printer.journal() == Journal{"claim 0", "out 02 5"});
}

TEST_CASE("a write of a multiple of the packet size is not followed by a zero-length packet") {
    Writer writer;
    CHECK(writer.put(std::string(2 * kPacket, 'x')) == kIOReturnSuccess);
    CHECK(writer.printer.journal() == Journal{"claim 0", "out 02 128"});
}

TEST_CASE("a large write is sent in pieces, whole and in order, with progress after each") {
    Writer writer;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> progress;
    writer.handle->setWriteProgress(
        [&](std::uint32_t done, std::uint32_t total) { progress.emplace_back(done, total); });
    const std::string image = pattern(2 * kPiece + 100);
    CHECK(writer.put(image) == kIOReturnSuccess);
    CHECK(writer.printer.received() == image);
    CHECK(writer.printer.journal() == Journal{"claim 0", "out 02 262144", "out 02 262144", "out 02 100"});
    const auto total = static_cast<std::uint32_t>(image.size());
    CHECK(progress ==
          std::vector<std::pair<std::uint32_t, std::uint32_t>>{{kPiece, total}, {2 * kPiece, total}, {total, total}});
}

TEST_CASE("a write of no bytes is success and makes no transfer") {
    Writer writer;
    CHECK(writer.put("") == kIOReturnSuccess);
    CHECK(writer.printer.journal() == Journal{"claim 0"});
}

TEST_CASE("a write that the device does not accept times out") {
    Writer writer;
    writer.printer.takesNothingMore();
    CHECK(writer.put("frame", 20) == kIOUSBTransactionTimeout);
}

TEST_CASE("a write that times out after its last byte was sent is success") {
    Writer writer;
    writer.printer.takes(5, MockPrinter::kNeverEnds);
    CHECK(writer.put("frame", 20) == kIOReturnSuccess);
    CHECK(writer.printer.received() == "frame");
}

TEST_CASE("a write that times out before its last byte was sent is a time-out") {
    Writer writer;
    writer.printer.takes(4, MockPrinter::kNeverEnds);
    CHECK(writer.put("frame", 20) == kIOUSBTransactionTimeout);
}

TEST_CASE("a write whose second piece is not accepted times out after the first was reported") {
    Writer writer;
    std::uint32_t reported = 0;
    writer.handle->setWriteProgress([&](std::uint32_t done, std::uint32_t) { reported = done; });
    writer.printer.takes(kPiece);
    writer.printer.takesNothingMore();
    CHECK(writer.put(pattern(kPiece + 1), 200) == kIOUSBTransactionTimeout);
    CHECK(reported == kPiece);
    CHECK(writer.printer.journal() == Journal{"claim 0", "out 02 262144", "out 02 1"});
}

TEST_CASE("a piece that ends early without an error is an underrun, and the rest is not sent") {
    Writer writer;
    writer.printer.takes(100);
    CHECK(writer.put(pattern(kPiece + 1)) == kIOReturnUnderrun);
    CHECK(writer.printer.journal() == Journal{"claim 0", "out 02 262144"});
}

TEST_CASE("a stalled write yields pipe stalled, clears the halt once and is not repeated") {
    Writer writer;
    writer.printer.takes(0, -EPIPE);
    CHECK(writer.put("frame") == kIOUSBPipeStalled);
    CHECK(writer.printer.journal() == Journal{"claim 0", "out 02 5", "halt 02"});
    CHECK(writer.put("again") == kIOReturnSuccess);
    CHECK(writer.printer.received() == "again");
}

TEST_CASE("a failed write to an attached device yields not responding") {
    Writer writer;
    writer.printer.takes(0, -EPROTO);
    CHECK(writer.put("frame") == kIOReturnNotResponding);
}

TEST_CASE("a write during which the device is detached yields no device, whichever error the system reports") {
    for (const int status : {-ESHUTDOWN, -ENODEV, -EPROTO}) {
        CAPTURE(status);
        Writer writer;
        writer.printer.vanishAtTransfer(0x02, status);
        CHECK(writer.put(pattern(kPiece + 1)) == kIOReturnNoDevice);
    }
}

TEST_CASE("a write without a claim is an error and makes no transfer") {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    bench.start();
    CHECK(bench.handle()->WritePipeTO(kPipeOut, "frame", 5, 100, 100) == kIOReturnError);
    CHECK(printer.journal().empty());
}

TEST_CASE("a write to the control pipe or to a missing pipe yields unknown pipe") {
    Writer writer;
    CHECK(writer.put("frame", 100, 0) == kIOUSBUnknownPipeErr);
    CHECK(writer.put("frame", 100, 3) == kIOUSBUnknownPipeErr);
}

TEST_CASE("a write to the IN pipe is a bad argument") {
    Writer writer;
    CHECK(writer.put("frame", 100, kPipeIn) == kIOReturnBadArgument);
}
