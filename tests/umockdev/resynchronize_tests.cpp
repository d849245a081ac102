// Resynchronizing a pipe after a late, missing or malformed reply.
#include "MockMachine.h"

#include <algorithm>
#include <cerrno>

using namespace zul;

namespace {

using Journal = std::vector<std::string>;

struct Slipped {
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    std::shared_ptr<IOUSBInterfaceInterface> handle = (bench.start(), bench.openHandle());

    std::string read(std::uint32_t size) {
        std::vector<char> bytes(size);
        if (handle->ReadPipeTO(kPipeIn, bytes.data(), size, 1000, 1000) != kIOReturnSuccess) return "failed";
        return {bytes.data(), size};
    }
    long count(const std::string& call) { return std::ranges::count(printer.journal(), call); }
};

} // namespace

TEST_CASE("pending replies in the pipe are dropped, and the next reply is the next one read") {
    Slipped slipped;
    slipped.printer.sends("00000006");
    slipped.printer.sends("00000\r");
    CHECK(slipped.handle->resynchronize(kPipeIn) == kIOReturnSuccess);
    slipped.printer.sends("00000011");
    CHECK(slipped.read(8) == "00000011");
}

TEST_CASE("buffered bytes of an earlier read are dropped") {
    Slipped slipped;
    slipped.printer.sends("0000000600000\r");
    REQUIRE(slipped.read(8) == "00000006");
    CHECK(slipped.handle->resynchronize(kPipeIn) == kIOReturnSuccess);
    slipped.printer.sends("next");
    CHECK(slipped.read(8) == "next");
}

TEST_CASE("the halt of the pipe is cleared before reading") {
    Slipped slipped;
    CHECK(slipped.handle->resynchronize(kPipeIn) == kIOReturnSuccess);
    CHECK(slipped.printer.journal() == Journal{"claim 0", "halt 81", "in 81 16384"});
}

TEST_CASE("a pipe that stalls again is cleared again and read to its end") {
    Slipped slipped;
    slipped.printer.sends("", -EPIPE);
    slipped.printer.sends("late");
    CHECK(slipped.handle->resynchronize(kPipeIn) == kIOReturnSuccess);
    CHECK(slipped.count("halt 81") == 2);
    slipped.printer.sends("next");
    CHECK(slipped.read(8) == "next");
}

TEST_CASE("a zero-length packet is not taken for the end") {
    Slipped slipped;
    slipped.printer.sends("");
    slipped.printer.sends("late");
    CHECK(slipped.handle->resynchronize(kPipeIn) == kIOReturnSuccess);
    slipped.printer.sends("next");
    CHECK(slipped.read(8) == "next");
}

TEST_CASE("reading a device that sends without end stops after a megabyte") {
    Slipped slipped;
    const std::string piece(16384, 'x');
    for (int i = 0; i < 100; ++i) slipped.printer.sends(piece);
    CHECK(slipped.handle->resynchronize(kPipeIn) == kIOReturnOverrun);
    CHECK(slipped.count("in 81 16384") == 64);
}

TEST_CASE("a device detached during the reads yields no device") {
    Slipped slipped;
    slipped.printer.vanishAtTransfer(0x81, -EPROTO);
    CHECK(slipped.handle->resynchronize(kPipeIn) == kIOReturnNoDevice);
}

TEST_CASE("only a bulk-in pipe of a claimed interface can be resynchronized") {
    Slipped slipped;
    CHECK(slipped.handle->resynchronize(kPipeOut) == kIOReturnBadArgument);
    CHECK(slipped.handle->resynchronize(0) == kIOUSBUnknownPipeErr);
    CHECK(slipped.handle->resynchronize(3) == kIOUSBUnknownPipeErr);
    REQUIRE(slipped.handle->USBInterfaceClose() == kIOReturnSuccess);
    CHECK(slipped.handle->resynchronize(kPipeIn) == kIOReturnError);
    CHECK(slipped.printer.journal() == Journal{"claim 0", "release 0"});
}
