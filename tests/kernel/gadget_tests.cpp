// The parts of the gadget that need no kernel support.
#define DOCTEST_CONFIG_IMPLEMENT_WITH_MAIN
#include "vkgadget/Descriptors.h"
#include "vkgadget/EndpointThreads.h"
#include "vkgadget/GadgetPrinter.h"

#include <doctest/doctest.h>
#include <set>
#include <utility>

using namespace zul;

TEST_CASE("a read requests one packet while less than a packet is known to come") {
    CHECK(readSize(0, 512) == 512);
    CHECK(readSize(32, 512) == 512);
    CHECK(readSize(511, 512) == 512);
}

TEST_CASE("no read requests more than the command still needs") {
    CHECK(readSize(512, 512) == 512);
    CHECK(readSize(1023, 512) == 512);
    CHECK(readSize(2000, 512) == 1536);
    CHECK(readSize(2000, 64) == 1984);
}

TEST_CASE("a large payload is read in limited pieces of whole packets") {
    CHECK(readSize(2000000, 512) == 65536);
    CHECK(readSize(2000000, 64) == 65536);
}

TEST_CASE("a gadget refuses settings that only an embedded printer can have") {
    for (const char* text : {"VK14,location=1-3", "VK14,fault=holder#1"}) {
        const auto parsed = parseVirtualPrinter(text);
        REQUIRE(parsed.settings);
        CHECK(problemOfGadget(*parsed.settings) != "");
    }
    const auto parsed = parseVirtualPrinter("VK14,interfaces=2,restart=500,fault=unplug@FW_UPDFLASH_PROGRAM");
    REQUIRE(parsed.settings);
    CHECK(problemOfGadget(*parsed.settings) == "");
}

TEST_CASE("the descriptors' block announces its own length and three descriptors for each interface and speed") {
    for (const int interfaces : {1, 2}) {
        const Data block = functionDescriptors(interfaces);
        CHECK(block.size() == static_cast<std::size_t>(20 + 2 * interfaces * (9 + 7 + 7)));
        CHECK(block[4] == block.size());
        CHECK(block[12] == 3 * interfaces);
        CHECK(block[16] == 3 * interfaces);
    }
}

TEST_CASE("each speed has one printer interface with a bulk endpoint in each direction") {
    const Data block = functionDescriptors(1);
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

TEST_CASE("a second interface has its own number and endpoints") {
    const Data block = functionDescriptors(2);
    for (const unsigned start : {20U, 66U}) {
        const unsigned second = start + 9 + 7 + 7;
        CHECK(block[start + 2] == 0);
        CHECK(block[second + 2] == 1);
        const std::set<unsigned> addresses = {block[start + 11], block[start + 18], block[second + 11],
                                              block[second + 18]};
        CHECK(addresses.size() == 4);
        CHECK((block[second + 11] & 0x80) == 0);
        CHECK((block[second + 18] & 0x80) == 0x80);
    }
}
