// S-record text, padding and checksum.
#include "archive/SRecord.h"

#include "holven_log/HOLVEN_Log.h"
#include "support/TemporaryFolder.h"

#include <doctest/doctest.h>

using namespace zul;

namespace {
bool isValid(const std::string& text) {
    return verifySRecData(dataFromText(text));
}
constexpr const char* kHeader = "S00600004844521B";
} // namespace

TEST_CASE("a header record is valid only with the right checksum") {
    CHECK(isValid("S00600004844521B"));
    CHECK(isValid("S00600004844521C") == false);
}

TEST_CASE("a record type without further characters is invalid") {
    for (const char* line : {"S1", "S", "S10", "S1000", "S100FF"}) {
        CAPTURE(line);
        CHECK(isValid(line) == false);
    }
}

TEST_CASE("line ends of every kind separate records, and empty lines are allowed") {
    const std::string header = kHeader;
    for (const char* end : {"\n", "\r", "\r\n", "\v", "\f", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9", "\n\n\n"}) {
        CHECK(isValid(header + end + header + end));
    }
}

TEST_CASE("a lower-case s, a letter as type, or other text makes a line invalid") {
    CHECK(isValid("s00600004844521B") == false);
    CHECK(isValid("SA0600004844521B") == false);
    CHECK(isValid("hello") == false);
}

TEST_CASE("one stray character at a line's end is tolerated and two are not") {
    CHECK(isValid(std::string(kHeader) + "x"));
    CHECK(isValid(std::string(kHeader) + "xx") == false);
}

TEST_CASE("hexadecimal digits count in either case, and other characters end the number") {
    CHECK(isValid("S00600004844521b"));
    CHECK(isValid("S0060000484452 B") == false);
    CHECK(isValid("S0+600004844521B") == false);
}

TEST_CASE("empty data is invalid, and a single NUL is one empty line") {
    CHECK(verifySRecData({}) == false);
    CHECK(verifySRecData({0}));
    CHECK(isValid("\n\n"));
}

TEST_CASE("characters after the first NUL are ignored") {
    Data data = dataFromText(kHeader);
    data.push_back(0);
    data.push_back('x');
    CHECK(verifySRecData(data));
}

TEST_CASE("text that is not UTF-8 is invalid") {
    Data data = dataFromText(kHeader);
    data.push_back(0xFF);
    CHECK(verifySRecData(data) == false);
}

TEST_CASE("the first invalid line is reported with its number and the reason") {
    const auto fault = findSRecordFault(dataFromText(std::string(kHeader) + "\nS00600004844521C\nS1"));
    REQUIRE(fault);
    CHECK(fault->line == 2);
    CHECK(fault->reason == "does not match its checksum");
}

TEST_CASE("a file is checked by its path and by its URL, and a missing file is invalid") {
    TemporaryFolder folder;
    const auto file = folder.write("a.fw", kHeader);
    CHECK(verifyMotorolaSFile(file));
    CHECK(verifyMotorolaSFile(std::filesystem::path("file://" + file.string())));
    CHECK(verifyMotorolaSFile(file.string() + ".not-there") == false);
}

TEST_CASE("the percent escapes of a file's URL are bytes of its path") {
    TemporaryFolder folder;
    const auto file = folder.write("VK14 01.61 100%\xC3\xA4#1.fw", kHeader);
    const std::string url = "file://" + folder.path.string();
    CHECK(verifyMotorolaSFile(url + "/VK14%2001.61%20100%25%C3%A4%231.fw"));
    CHECK(verifyMotorolaSFile(url + "/VK14%2001.61%20100%25%c3%a4%231.fw"));
    CHECK(verifyMotorolaSFile("file://localhost" + folder.path.string() + "/VK14%2001.61%20100%25%C3%A4%231.fw"));
    CHECK(verifyMotorolaSFile(file)); // in a path a percent sign is literal
    CHECK(verifyMotorolaSFile("file://" + file.string()) == false);
    folder.write("a.fw", kHeader);
    for (const char* wrong : {"/a.fw%", "/a.fw%0", "/a.fw%zz", "/a.fw%00"}) {
        CAPTURE(wrong);
        CHECK(verifyMotorolaSFile(url + wrong) == false);
    }
}

TEST_CASE("padding fills up to a multiple of four and changes no other byte") {
    HOLVEN_Log::setShouldLogToStdErr(false);
    CHECK(paddedData({1, 2, 3, 4, 5}) == Data{1, 2, 3, 4, 5, 0, 0, 0});
    CHECK(paddedData(Data(8, 1)) == Data(8, 1));
    CHECK(paddedData({}).empty());
}

TEST_CASE("the checksum is the complement of the byte sum") {
    HOLVEN_Log::setShouldLogToStdErr(false);
    CHECK(checksumForData({1, 2, 3}) == 0xFFF9);
    CHECK(checksumForData({}) == 0xFFFF);
    CHECK(checksumForData({0xFF}) == 0xFF00);
}

TEST_CASE("a file whose last line ends with a line feed is valid") {
    CHECK(verifySRecData(dataFromText("S00600004844521B\n")));
}

TEST_CASE("a line of \"S1\" alone is invalid") {
    CHECK_FALSE(verifySRecData(dataFromText("S1")));
}

TEST_CASE("padding and the checksum log their numbers") {
    std::string logged;
    HOLVEN_Log::Outside outside = HOLVEN_Log::systemOutside();
    outside.standardError = [&logged](const std::string& text) { logged += text; };
    HOLVEN_Log::reset(outside);
    HOLVEN_Log::setApplicationName("lab");
    static_cast<void>(paddedData(Data{1, 2, 3, 4, 5}));
    CHECK(logged == "DEBUG: lab: padding data of length 5 to length 8\n");
    logged.clear();
    CHECK(checksumForData(Data{1, 2, 0xFF}) == 0xFEFD);
    CHECK(logged == "DEBUG: lab: ucount = 258;scount = 2\n"
                    "DEBUG: lab: u16count = 4294967037;s16count = -3\n"
                    "DEBUG: lab: u16count ~= fefd;s16count ~= fffffffd\n");
    HOLVEN_Log::reset();
}
