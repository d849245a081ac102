// Which replies can belong to which query.
#include "protocol/ReplyShapes.h"

#include "protocol/CommandFrame.h"

#include <array>
#include <doctest/doctest.h>

using namespace zul;

namespace {

constexpr auto kShapes = std::to_array<ReplyShape>(
    {ReplyShape::status, ReplyShape::firmwareVersion, ReplyShape::serialNumber, ReplyShape::lifetimeCounter,
     ReplyShape::tableVersion, ReplyShape::tableChecksum, ReplyShape::usbSerialSetting});

// The shapes that a text fits, one letter each in the order above.
std::string shapesOf(const std::string& text) {
    constexpr std::string_view kLetters = "svnlqcu";
    std::string letters;
    for (std::size_t index = 0; index < kShapes.size(); ++index) {
        if (fitsShape(text, kShapes.at(index))) letters += kLetters[index];
    }
    return letters;
}

bool isHeader(std::string_view text) {
    return isReplyHeader({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

} // namespace

TEST_CASE("a reply fits the queries that it can belong to") {
    // s status, v version, n serial number, l lifetime counter, q table version, c checksum, u USB serial setting
    CHECK(shapesOf("00000") == "snlqcu");
    CHECK(shapesOf("01000") == "snlqcu");
    CHECK(shapesOf("FU00001") == "s");
    CHECK(shapesOf("FU00002") == "s");
    CHECK(shapesOf("VK14 01.60") == "vn");
    CHECK(shapesOf("VK18DUP 1.39PRN") == "vn");
    CHECK(shapesOf("VK-RZ7 02.03") == "vn");
    CHECK(shapesOf("RZ7_ALLFWU_2.05") == "vnqc");
    CHECK(shapesOf("CL0000042") == "l");
    CHECK(shapesOf("0000042") == "snlqc");
    CHECK(shapesOf("0160") == "snlqcu");
    CHECK(shapesOf("1F2E") == "snqc");
    CHECK(shapesOf("ABCD") == "nqc");
    CHECK(shapesOf("0001") == "snlqcu");
    CHECK(shapesOf("000001") == "snlqc");
    CHECK(shapesOf("NULL") == "nqc");
}

TEST_CASE("an empty reply fits any query, and text that is not UTF-8 fits none") {
    CHECK(shapesOf("") == "svnlqcu");
    CHECK(shapesOf(" \n") == "svnlqcu");
    for (const ReplyShape shape : kShapes) CHECK_FALSE(fitsShape(std::nullopt, shape));
    CHECK_FALSE(fitsShape(std::nullopt, ReplyShape::anyText));
}

TEST_CASE("a status may have leading zeros, a sign, and text after its number") {
    for (const char* text : {"0", "1", "01000 now", "-1", "+5", " 00000 "}) {
        CAPTURE(text);
        CHECK(fitsShape(text, ReplyShape::status));
    }
    for (const char* text : {"Idle", "FU", "FU0000x", "-", "CL0000042", "?????"}) {
        CAPTURE(text);
        CHECK_FALSE(fitsShape(text, ReplyShape::status));
    }
}

TEST_CASE("a version has letters and digits, and is not a checksum, counter or loader's mark") {
    for (const char* text : {" VK14 01.60 \n", "V2", "1.39PRN"}) {
        CAPTURE(text);
        CHECK(fitsShape(text, ReplyShape::firmwareVersion));
    }
    for (const char* text : {"01600", "12AB", "CL0000042", "FU00001", "VK", "0160"}) {
        CAPTURE(text);
        CHECK_FALSE(fitsShape(text, ReplyShape::firmwareVersion));
    }
}

TEST_CASE("a reply has a limited length and no control characters inside") {
    const std::string longest(64, '7');
    CHECK(fitsShape(longest, ReplyShape::serialNumber));
    CHECK_FALSE(fitsShape(longest + '7', ReplyShape::serialNumber));
    CHECK(fitsShape(std::string(32, 'A'), ReplyShape::tableChecksum));
    CHECK_FALSE(fitsShape(std::string(33, 'A'), ReplyShape::tableChecksum));
    CHECK(fitsShape(std::string(16, '1'), ReplyShape::lifetimeCounter));
    CHECK_FALSE(fitsShape(std::string(17, '1'), ReplyShape::lifetimeCounter));
    CHECK(fitsShape("00001", ReplyShape::usbSerialSetting));
    CHECK_FALSE(fitsShape("000001", ReplyShape::usbSerialSetting));
    for (const ReplyShape shape : kShapes) {
        CHECK_FALSE(fitsShape("0\x1B[2J0", shape));
        CHECK_FALSE(fitsShape("0\x7F", shape));
    }
    CHECK(fitsShape("0\x1B[2J0", ReplyShape::anyText));
}

TEST_CASE("every query whose reply is stored has a shape") {
    CHECK(replyShapeFor(kCommandStatus) == ReplyShape::status);
    CHECK(replyShapeFor(kCommandFirmwareVersion) == ReplyShape::firmwareVersion);
    CHECK(replyShapeFor(kCommandSerialNumber) == ReplyShape::serialNumber);
    CHECK(replyShapeFor(kCommandLifetimeCounter) == ReplyShape::lifetimeCounter);
    CHECK(replyShapeFor(kCommandGetISerial) == ReplyShape::usbSerialSetting);
    for (const std::uint32_t code : {21U, 24U, 25U, 26U, 27U}) CHECK(replyShapeFor(code) == ReplyShape::tableVersion);
    for (const std::uint32_t code : {23U, 28U, 29U, 30U, 31U}) CHECK(replyShapeFor(code) == ReplyShape::tableChecksum);
    for (const std::uint32_t code : {3U, 4U, 7U, 20U, 22U, 33U, 40U, 44U}) {
        CHECK(replyShapeFor(code) == ReplyShape::anyText);
    }
}

TEST_CASE("a reply's header is eight digits, with blanks allowed at its ends") {
    for (const char* text : {"00000006", "00004097", "      11", "11      "}) CHECK(isHeader(text));
    for (const char* text : {"", "0000006", "000000006", "????????", "        ", "-0000001", "0000 006", "0000000x",
                             "\xC2\xA0"
                             "000006"}) {
        CHECK_FALSE(isHeader(text));
    }
}
