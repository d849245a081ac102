// Text helpers: encodings, comparing, replacing, dates and dumps.
#include "holven_Base/HOLVEN_NSDateAdditions.h"
#include "holven_Base/HOLVEN_NSStringAdditions.h"

#include <cstdlib>
#include <ctime>
#include <doctest/doctest.h>
#include <unicode/locid.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

std::optional<std::string> text(const Data& bytes, std::size_t maxLength, StringEncoding encoding) {
    return stringWithCString(bytes.data(), maxLength, encoding);
}

constexpr CharacterRange kWholeText{0, SIZE_MAX};

// Sets the time zone of the machine while the object exists.
struct MachineZone {
    explicit MachineZone(const char* zone) {
        if (const char* was = std::getenv("TZ")) before = was;
        ::setenv("TZ", zone, /*overwrite=*/1);
        ::tzset();
    }
    ~MachineZone() {
        before ? ::setenv("TZ", before->c_str(), /*overwrite=*/1) : ::unsetenv("TZ");
        ::tzset();
    }
    MachineZone(const MachineZone&) = delete;
    MachineZone& operator=(const MachineZone&) = delete;
    std::optional<std::string> before;
};

} // namespace

TEST_CASE("a leading UTF-8 mark is skipped when the length is unlimited") {
    CHECK(text({0xEF, 0xBB, 0xBF, 0x41, 0x00}, 0, StringEncoding::utf8) == "A");
}

TEST_CASE("a UTF-8 mark is text when the maximum is 3, and not included in a larger one") {
    CHECK(text({0xEF, 0xBB, 0xBF, 0x41, 0x00}, 3, StringEncoding::utf8) == "\xEF\xBB\xBF");
    CHECK(text({0xEF, 0xBB, 0xBF, 'A', 'B', 'C', 'D', 'E'}, 4, StringEncoding::utf8) == "ABCD");
}

TEST_CASE("no bytes before the zero yield the empty string, not nullopt") {
    CHECK(text({0x00}, 0, StringEncoding::utf8) == "");
    CHECK(text({0x00, 0x00}, 0, StringEncoding::utf16) == "");
    CHECK(text({0x00, 0x00, 0x00, 0x00}, 0, StringEncoding::utf32) == "");
}

TEST_CASE("text ends at the maximum if no zero comes before") {
    CHECK(text({'a', 'b', 'c', 'd'}, 2, StringEncoding::utf8) == "ab");
    CHECK(text({'a', 0, 'c', 'd'}, 4, StringEncoding::utf8) == "a");
    CHECK(text({'a', 0, 'b', 0, 'c', 0}, 4, StringEncoding::utf16LittleEndian) == "ab");
}

TEST_CASE("an unsupported encoding yields nullopt") {
    CHECK_FALSE(text({'a', 0}, 0, static_cast<StringEncoding>(7777)));
}

TEST_CASE("a maximum below one unit yields nullopt") {
    CHECK_FALSE(text({'a', 0, 0, 0}, 1, StringEncoding::utf16));
    CHECK_FALSE(text({'a', 0, 0, 0}, 3, StringEncoding::utf32));
}

TEST_CASE("bytes that are invalid in the encoding yield nullopt") {
    CHECK_FALSE(text({0xC3, 0x28, 0x00}, 0, StringEncoding::utf8));
    CHECK_FALSE(text({0x80, 0x00}, 0, StringEncoding::ascii));
}

TEST_CASE("a maximum that cuts a character yields nullopt") {
    CHECK_FALSE(text({'a', 0xC3, 0xA4, 0x00}, 2, StringEncoding::utf8));
}

TEST_CASE("a mark in 16-bit text selects the byte order") {
    CHECK(text({0xFF, 0xFE, 'A', 0x00, 0x00, 0x00}, 0, StringEncoding::utf16) == "A");
    CHECK(text({0xFE, 0xFF, 0x00, 'A', 0x00, 0x00}, 0, StringEncoding::utf16) == "A");
    CHECK(text({0xFE, 0xFF, 0x00, 'A', 0x00, 0x00}, 0, StringEncoding::utf16LittleEndian) == "A");
}

TEST_CASE("a mark in 32-bit text selects the byte order") {
    CHECK(text({0xFF, 0xFE, 0, 0, 'A', 0, 0, 0, 0, 0, 0, 0}, 0, StringEncoding::utf32) == "A");
    CHECK(text({0, 0, 0xFE, 0xFF, 0, 0, 0, 'A', 0, 0, 0, 0}, 0, StringEncoding::utf32) == "A");
}

TEST_CASE("text with one byte per character is decoded by its encoding") {
    CHECK(text({0xE4, 0x00}, 0, StringEncoding::isoLatin1) == "\xC3\xA4");
    CHECK(text({0x80, 0x00}, 0, StringEncoding::windowsCP1252) == "\xE2\x82\xAC");
    CHECK(text({0x83, 0x41, 0x00}, 0, StringEncoding::shiftJIS) == "\xE3\x82\xA2");
}

TEST_CASE("16-bit text is decoded by its mark, and big-endian without one") {
    CHECK(stringFromUTF16WithByteOrderMark(Data{0xFF, 0xFE, 'A', 0, 0xAC, 0x20}) == "A\xE2\x82\xAC");
    CHECK(stringFromUTF16WithByteOrderMark(Data{0xFE, 0xFF, 0, 'A'}) == "A");
    CHECK(stringFromUTF16WithByteOrderMark(Data{0, 'A'}) == "A");
    CHECK(stringFromUTF16WithByteOrderMark(Data{0xFF, 0xFE, 'A', 0, 'B'}) == "A");
    CHECK(stringFromUTF16WithByteOrderMark(Data{0xFF, 0xFE}) == "");
    CHECK(stringFromUTF16WithByteOrderMark(Data{}) == "");
}

TEST_CASE("a surrogate pair of 16-bit text is one character, a lone surrogate the replacement character") {
    CHECK(stringFromUTF16WithByteOrderMark(Data{0xFF, 0xFE, 0x3D, 0xD8, 0x00, 0xDE}) == "\xF0\x9F\x98\x80");
    CHECK(stringFromUTF16WithByteOrderMark(Data{0xFF, 0xFE, 0x3D, 0xD8}) == "\xEF\xBF\xBD");
}

TEST_CASE("a text is found from the front, from the back, and if anchored only at the ends") {
    const std::string haystack = "abcabcABC";
    const TextRange all{0, haystack.size()};
    CHECK(rangeOfString(haystack, "abc", CompareOptions::none, all) == TextRange{0, 3});
    CHECK(rangeOfString(haystack, "abc", CompareOptions::none, {1, 8}) == TextRange{3, 3});
    CHECK(rangeOfString(haystack, "abc", CompareOptions::backwards, all) == TextRange{3, 3});
    CHECK(rangeOfString(haystack, "abc", CompareOptions::backwards | CompareOptions::caseInsensitive, all) ==
          TextRange{6, 3});
    CHECK_FALSE(rangeOfString(haystack, "bca", CompareOptions::anchored, all));
    CHECK(rangeOfString(haystack, "ABC", CompareOptions::anchored | CompareOptions::backwards, all) == TextRange{6, 3});
    CHECK_FALSE(rangeOfString(haystack, "abc", CompareOptions::none, {4, 4}));
    CHECK_FALSE(rangeOfString(haystack, "", CompareOptions::none, all));
}

TEST_CASE("searching without case is not limited to ASCII") {
    CHECK(rangeOfString("x\xC3\x84y", "\xC3\xA4Y", CompareOptions::caseInsensitive, {0, 4}) == TextRange{1, 3});
}

TEST_CASE("with two targets and one value the second target is replaced by the empty string") {
    CHECK(stringByReplacingSubStrings("a-b-c", {"b", "-"}, {"x"}, CompareOptions::none, kWholeText) == "axc");
}

TEST_CASE("targets are replaced one after the other, each in the result of the previous one") {
    CHECK(stringByReplacingSubStrings("a", {"a", "b"}, {"bb", "c"}, CompareOptions::none, kWholeText) == "cc");
    CHECK(stringByReplacingSubStrings("aaa", {"a"}, {"aa"}, CompareOptions::none, kWholeText) == "aaaaaa");
}

TEST_CASE("text outside the range is unchanged") {
    CHECK(stringByReplacingSubStrings("aXaXa", {"a"}, {"b"}, CompareOptions::none, {1, 3}) == "aXbXa");
    CHECK(stringByReplacingSubStrings("\xC3\xA4-a", {"a"}, {"b"}, CompareOptions::none, {2, 1}) == "\xC3\xA4-b");
    CHECK(stringByReplacingSubStrings("aa", {"a"}, {"b"}, CompareOptions::none, {1, 100}) == "ab");
    CHECK(stringByReplacingSubStrings("aa", {"a"}, {"b"}, CompareOptions::none, {5, 1}) == "aa");
}

TEST_CASE("replacing applies the options, and yields nullopt for nullopt") {
    CHECK(stringByReplacingSubStrings("aA", {"a"}, {"b"}, CompareOptions::caseInsensitive, kWholeText) == "bb");
    CHECK(stringByReplacingSubStrings("aba", {"a"}, {"x"}, CompareOptions::anchored, kWholeText) == "xba");
    CHECK(stringByReplacingSubStrings("aaa", {"aa"}, {"x"}, CompareOptions::backwards, kWholeText) == "ax");
    CHECK_FALSE(stringByReplacingSubStrings(std::nullopt, {"a"}, {"b"}, CompareOptions::none, kWholeText));
}

TEST_CASE("deleting characters of a set keeps all others") {
    const CharacterSet set = characterSetWithCharactersInString("-\xC3\xA4");
    CHECK(stringByDeletingCharactersInSet("-a\xC3\xA4-b\xC3\xB6-", set) == "ab\xC3\xB6");
    CHECK(stringByDeletingCharactersInSet("--", set) == "");
    CHECK_FALSE(stringByDeletingCharactersInSet(std::nullopt, set));
}

TEST_CASE("the localised comparison uses last path components without extension and case") {
    CHECK(std::is_eq(myLocalizedCompare("/x/Photo.png", "/y/photo.jpg")));
    CHECK(std::is_lt(myLocalizedCompare("/z/a.txt", "/a/b.txt")));
    CHECK(std::is_gt(myLocalizedCompare("b", "A")));
    CHECK(std::is_eq(myLocalizedCompare("/x/Folder/", "folder")));
}

TEST_CASE("the numerical comparison sorts file9 before file10 whatever the case") {
    CHECK(std::is_lt(numericalCaseInsensitiveCompare("file9", "File10")));
    CHECK(std::is_gt(numericalCaseInsensitiveCompare("FILE10", "file9")));
    CHECK(std::is_eq(numericalCaseInsensitiveCompare("File9", "fILE9")));
    CHECK(std::is_lt(numericalCaseInsensitiveCompare("a", "b")));
}

TEST_CASE("a date is formatted by a pattern in the named zone") {
    const auto date = std::chrono::sys_days{std::chrono::year{2026} / 3 / 1} + 9h + 15min + 2s + 123ms;
    CHECK(stringWithUTSFormat(date, "[YYYY/MM/dd HH:mm:ss.SSS Z]", "Europe/Paris") ==
          "[2026/03/01 10:15:02.123 +0100]");
}

TEST_CASE("without a named zone a date is formatted in the machine's, however that is defined") {
    struct Row {
        const char* zone;
        const char* winter;
        const char* summer;
    };
    const auto winter = std::chrono::sys_days{std::chrono::year{2026} / 1 / 15} + 12h;
    const auto summer = std::chrono::sys_days{std::chrono::year{2026} / 7 / 15} + 12h;
    for (const Row& row : {Row{":Europe/Berlin", "2026/01/15 13:00 +0100", "2026/07/15 14:00 +0200"},
                           Row{"America/New_York", "2026/01/15 07:00 -0500", "2026/07/15 08:00 -0400"},
                           Row{"CET-1CEST,M3.5.0,M10.5.0/3", "2026/01/15 13:00 +0100", "2026/07/15 14:00 +0200"},
                           Row{"AEST-10AEDT,M10.1.0,M4.1.0/3", "2026/01/15 23:00 +1100", "2026/07/15 22:00 +1000"},
                           Row{"<+0545>-5:45", "2026/01/15 17:45 +0545", "2026/07/15 17:45 +0545"},
                           Row{"NST3:30NDT,M3.2.0,M11.1.0", "2026/01/15 08:30 -0330", "2026/07/15 09:30 -0230"},
                           Row{"UTC0", "2026/01/15 12:00 +0000", "2026/07/15 12:00 +0000"}}) {
        CAPTURE(row.zone);
        const MachineZone zone(row.zone);
        CHECK(stringWithUTSFormat(winter, "yyyy/MM/dd HH:mm Z") == row.winter);
        CHECK(stringWithUTSFormat(summer, "yyyy/MM/dd HH:mm Z") == row.summer);
    }
}

TEST_CASE("a date has the same digits and calendar in every language") {
    const icu::Locale before = icu::Locale::getDefault();
    const auto date = std::chrono::sys_days{std::chrono::year{2026} / 3 / 1} + 9h;
    for (const char* language : {"fa_IR", "ar_EG", "th_TH_TRADITIONAL"}) {
        UErrorCode status = U_ZERO_ERROR;
        icu::Locale::setDefault(icu::Locale(language), status);
        CHECK(stringWithUTSFormat(date, "yyyy/MM/dd HH", "UTC") == "2026/03/01 09");
    }
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(before, status);
}

TEST_CASE("the week-based year differs from the calendar year around New Year") {
    const auto date = std::chrono::sys_days{std::chrono::year{2024} / 12 / 31} + 12h;
    CHECK(stringWithUTSFormat(date, "YYYY yyyy", "UTC") == "2025 2024");
}

TEST_CASE("a date pattern with a letter that is not a field yields nullopt") {
    CHECK_FALSE(stringWithUTSFormat(std::chrono::system_clock::time_point{}, "yyyy nn"));
}

TEST_CASE("a dump shows offset, cells and characters of each row, a single percent sign included") {
    Data data(17, 'a');
    data[1] = '%';
    data[2] = 0x7F;
    CHECK(hexdump(data, 0, data.size()) ==
          "00000000  61 25 7f 61 61 61 61 61  61 61 61 61 61 61 61 61  |a%.aaaaaaaaaaaaa|\n"
          "00000010  61 " +
              std::string(15 * 3 + 1, ' ') + " |a|\n");
}

TEST_CASE("equal rows of a dump are replaced by a count, in the middle and at the end") {
    Data data(16 * 6, 0);
    data[16 * 3] = 'x';
    const std::string zeroes = "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  |................|\n";
    CHECK(hexdump(data, 0, data.size()) ==
          "00000000  " + zeroes + "* last line repeated 2 times\n" +
              "00000030  78 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  |x...............|\n" + "00000040  " +
              zeroes + "* last line repeated 1 times\n");
}

TEST_CASE("a dump of a range has offsets from the start of the data and ends with the data") {
    const Data data = dataFromText("0123456789");
    CHECK(hexdump(data, 8, 100) == "00000008  38 39 " + std::string(14 * 3 + 1, ' ') + " |89|\n");
    CHECK(hexdump(data, 10, 1).empty());
    CHECK(hexdump(data, 11, 1).empty());
}
