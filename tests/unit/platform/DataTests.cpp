// Conversion of bytes and texts, and the device information.
#include "Classes/DeviceInfo.h"
#include "platform/foundation/Data.h"

#include <clocale>
#include <doctest/doctest.h>
#include <limits>

using namespace zul;

TEST_CASE("an integer is the leading digits after blanks and a sign") {
    CHECK(integerValue("42") == 42);
    CHECK(integerValue("  -17 sheets") == -17);
    CHECK(integerValue("+5") == 5);
    CHECK(integerValue("0012") == 12);
    CHECK(integerValue("3.9") == 3);
}

TEST_CASE("a text without leading digits is the integer 0") {
    for (const char* text : {"", " ", "-", "+", "FU00001", "x1", "+-5", "-+5", "--5", "++5"})
        CHECK(integerValue(text) == 0);
}

TEST_CASE("an integer too large is the largest, too small the smallest") {
    CHECK(integerValue("99999999999999999999") == std::numeric_limits<std::int64_t>::max());
    CHECK(integerValue("-99999999999999999999") == std::numeric_limits<std::int64_t>::min());
}

TEST_CASE("a number with a point reads up to the second point") {
    CHECK(doubleValue("1.10") == doctest::Approx(1.1));
    CHECK(doubleValue("1.2.3") == doctest::Approx(1.2));
    CHECK(doubleValue(" -0.5x") == doctest::Approx(-0.5));
    CHECK(doubleValue("+2") == doctest::Approx(2.0));
    CHECK(doubleValue(".5") == doctest::Approx(0.5));
}

TEST_CASE("text that is not a plain number is 0.0, including names of special values") {
    for (const char* text : {"", "-", "inf", "nan", "-inf", "V1.0", "+-1.5", "-+1.5", "--1.5", "++1.5"})
        CHECK(doubleValue(text) == 0.0);
}

TEST_CASE("numbers do not depend on the locale's decimal mark") {
    const std::string before = std::setlocale(LC_NUMERIC, nullptr);
    std::setlocale(LC_NUMERIC, "de_DE.UTF-8"); // if it is installed
    CHECK(doubleValue("1.5") == doctest::Approx(1.5));
    CHECK(doubleValue("1,5") == doctest::Approx(1.0));
    std::setlocale(LC_NUMERIC, before.c_str());
}

TEST_CASE("a flag is yes for leading Y, T in any case, or a number other than 0") {
    for (const char* text : {"YES", "yes", "true", " T", "1", "-1", "42"}) CHECK(boolValue(text));
    for (const char* text : {"", "NO", "false", "0", "00", "x1"}) CHECK_FALSE(boolValue(text));
}

TEST_CASE("text ends at the first zero byte and must be valid UTF-8") {
    CHECK(stringFromNulTerminatedUTF8({'a', 'b', 0, 0xFF}) == "ab");
    CHECK(stringFromNulTerminatedUTF8({'a', 'b'}) == "ab");
    CHECK(stringFromNulTerminatedUTF8({}) == "");
    CHECK_FALSE(stringFromNulTerminatedUTF8({'a', 0xFF}));
    CHECK_FALSE(stringFromNulTerminatedUTF8({0xED, 0xA0, 0x80})); // overlong encoding of zero
    CHECK_FALSE(stringFromNulTerminatedUTF8({0xC0, 0x80}));       // the long way to write zero
    CHECK(stringFromUTF8(std::string_view("a\0b", 3)) == std::string("a\0b", 3));
}

TEST_CASE("white space and line ends are removed at both ends, not in the middle") {
    CHECK(trimmedWhitespaceAndNewlines(" \t\r\n a b \n") == "a b");
    CHECK(trimmedWhitespaceAndNewlines("\xC2\xA0x\xE3\x80\x80") == "x");
    CHECK(trimmedWhitespaceAndNewlines(" \n ").empty());
    CHECK(trimmedWhitespaceAndNewlines("").empty());
}

TEST_CASE("device information returns a value only as its own type") {
    DeviceInfo info;
    info.set("model", std::string("VK14"));
    info.set("count", std::int64_t{3});
    info.set("flag", true);
    info.set("list", std::vector<std::string>{"a", "b"});
    CHECK(info.string("model") == "VK14");
    CHECK_FALSE(info.string("count"));
    CHECK(info.integer("count") == 3);
    CHECK_FALSE(info.integer("flag"));
    CHECK(info.boolean("flag") == true);
    CHECK(info.strings("list") == std::vector<std::string>{"a", "b"});
    CHECK_FALSE(info.strings("absent"));
    CHECK(info.count() == 4);
    CHECK(info.contains("flag"));
}

TEST_CASE("storing nullopt removes the value") {
    DeviceInfo info({{"model", std::string("VK14")}});
    info.setString("model", std::nullopt);
    CHECK_FALSE(info.contains("model"));
    info.setString("model", "VK18");
    CHECK(info.string("model") == "VK18");
    info.remove("model");
    info.remove("model");
    CHECK(info.count() == 0);
}

TEST_CASE("immutable device information ignores every change") {
    DeviceInfo info({{"model", std::string("VK14")}}, DeviceInfo::Mutability::isImmutable);
    info.set("model", std::string("VK18"));
    info.setString("new", "x");
    info.remove("model");
    info.addEntries(DeviceInfo({{"other", true}}));
    CHECK_FALSE(info.isMutable());
    CHECK(info.entries() == DeviceInfo::Entries{{"model", std::string("VK14")}});
}

TEST_CASE("adding entries replaces those of the same key, adding to itself changes nothing") {
    DeviceInfo info({{"a", std::int64_t{1}}, {"b", std::int64_t{2}}});
    info.addEntries(DeviceInfo({{"b", std::int64_t{3}}, {"c", std::int64_t{4}}}));
    info.addEntries(info);
    CHECK(info.entries() ==
          DeviceInfo::Entries{{"a", std::int64_t{1}}, {"b", std::int64_t{3}}, {"c", std::int64_t{4}}});
}

TEST_CASE("device information describes itself in the order of its keys") {
    const DeviceInfo info(
        {{"b", std::string("x")}, {"a", std::int64_t{1}}, {"c", true}, {"d", std::vector<std::string>{"p", "q"}}});
    CHECK(info.description() == "{ a = 1; b = \"x\"; c = 1; d = (\"p\", \"q\"); }");
    CHECK(DeviceInfo().description() == "{ }");
}

TEST_CASE("text for storing becomes valid UTF-8 without NUL, and valid text is unchanged") {
    CHECK(repairedUTF8("Größe \xE2\x82\xAC \xF0\x9F\x96\xA8") == "Größe \xE2\x82\xAC \xF0\x9F\x96\xA8");
    CHECK(repairedUTF8("a\xFFz") == "a\xEF\xBF\xBDz");
    CHECK(repairedUTF8(std::string_view("a\0z", 3)) == "a\xEF\xBF\xBDz");
    CHECK(repairedUTF8("cut \xE2\x82") == "cut \xEF\xBF\xBD");
    CHECK(repairedUTF8("") == "");
}
