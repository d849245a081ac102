// The parts of the gadget that need no kernel.
#define DOCTEST_CONFIG_IMPLEMENT_WITH_MAIN
#include "virtual_printer/gadget/Descriptors.h"
#include "virtual_printer/gadget/ReadAhead.h"

#include <doctest/doctest.h>
#include <string>

using namespace zul;

namespace {

constexpr std::size_t kPacket = 512;
constexpr std::size_t kLimit = 64 * 1024;

Data header(const std::string& size) {
    std::string text = "\x1BPFW_UPDFLASH_PROGRAM";
    text.resize(24, ' ');
    return dataFromText(text + size);
}

std::size_t nextRead(const ReadAhead& readAhead) {
    return readAhead.nextReadSize(kPacket, kLimit);
}

} // namespace

TEST_CASE("between two commands one packet is asked for") {
    ReadAhead readAhead;
    CHECK(nextRead(readAhead) == kPacket);
    readAhead.received(header("        "));
    CHECK(nextRead(readAhead) == kPacket);
}

TEST_CASE("no read asks for more than the payload still brings") {
    ReadAhead readAhead;
    readAhead.received(header("00002000"));
    CHECK(nextRead(readAhead) == 3 * kPacket);
    readAhead.received(Data(3 * kPacket));
    CHECK(nextRead(readAhead) == kPacket); // 464 bytes are left: they come as one short packet
    readAhead.received(Data(464));
    readAhead.received(header("00001024"));
    CHECK(nextRead(readAhead) == 2 * kPacket);
}

TEST_CASE("a large payload is read in pieces of the limit") {
    ReadAhead readAhead;
    readAhead.received(header("02000000"));
    CHECK(nextRead(readAhead) == kLimit);
}

TEST_CASE("a header that comes byte by byte counts as one") {
    ReadAhead readAhead;
    for (const auto byte : header("00001024")) {
        CHECK(nextRead(readAhead) == kPacket);
        readAhead.received({byte});
    }
    CHECK(nextRead(readAhead) == 2 * kPacket);
}

TEST_CASE("a payload and the next header in one piece are told apart") {
    ReadAhead readAhead;
    Data bytes = header("00000010");
    bytes.resize(bytes.size() + 10);
    const Data next = header("00005120");
    bytes.insert(bytes.end(), next.begin(), next.end());
    readAhead.received(bytes);
    CHECK(nextRead(readAhead) == 10 * kPacket);
}

TEST_CASE("bytes that are no command announce nothing") {
    ReadAhead readAhead;
    Data bytes = header("00001024");
    bytes[0] = 'X';
    readAhead.received(bytes);
    CHECK(nextRead(readAhead) == kPacket);
}

TEST_CASE("after a restart of the bus the rest of a payload is no longer waited for") {
    ReadAhead readAhead;
    readAhead.received(header("00001024"));
    readAhead.restart();
    CHECK(nextRead(readAhead) == kPacket);
}

TEST_CASE("the descriptors' block announces its own length and three descriptors for each of two speeds") {
    const Data block = functionDescriptors();
    CHECK(block.size() == 20 + 2 * (9 + 7 + 7));
    CHECK(block[4] == block.size());
    CHECK(block[12] == 3);
    CHECK(block[16] == 3);
}

TEST_CASE("each speed has one printer interface with a bulk endpoint in each direction") {
    const Data block = functionDescriptors();
    for (const auto& [start, packetSize] : {std::pair{20U, 64U}, std::pair{43U, 512U}}) {
        CHECK(Data(block.begin() + start, block.begin() + start + 9) == Data{9, 4, 0, 0, 2, 7, 1, 2, 0});
        for (const unsigned endpoint : {start + 9, start + 16}) {
            CHECK(block[endpoint + 3] == 2);
            CHECK((block[endpoint + 4] | block[endpoint + 5] << 8) == static_cast<int>(packetSize));
        }
        CHECK((block[start + 11] & 0x80) == 0);
        CHECK((block[start + 18] & 0x80) == 0x80);
    }
}
