// Texts of devices: no character of them controls a terminal or a window.
#include "platform/foundation/PrintableText.h"
#include "platform/foundation/SystemLog.h"
#include "support/StandardErrorCapture.h"

#include <doctest/doctest.h>

using namespace zul;

namespace {

struct Row {
    const char* what;
    std::string bytes;
    std::string escape; // in JSON; empty if the character cannot occur in its texts
};

const Row kCommands[] = {
    {"escape", "\x1B", ""},
    {"bell", "\x07", ""},
    {"tab", "\t", ""},
    {"carriage return", "\r", ""},
    {"delete", "\x7F", "\\u007f"},
    {"next line", "\xC2\x85", "\\u0085"},
    {"control sequence introducer", "\xC2\x9B", "\\u009b"},
    {"application program command", "\xC2\x9F", "\\u009f"},
    {"Arabic letter mark", "\xD8\x9C", "\\u061c"},
    {"left-to-right mark", "\xE2\x80\x8E", "\\u200e"},
    {"right-to-left mark", "\xE2\x80\x8F", "\\u200f"},
    {"left-to-right embedding", "\xE2\x80\xAA", "\\u202a"},
    {"right-to-left override", "\xE2\x80\xAE", "\\u202e"},
    {"left-to-right isolate", "\xE2\x81\xA6", "\\u2066"},
    {"pop directional isolate", "\xE2\x81\xA9", "\\u2069"},
};

} // namespace

TEST_CASE("characters that control a terminal or the text direction are shown as a question mark") {
    for (const Row& row : kCommands) {
        CAPTURE(row.what);
        CHECK(printable("a" + row.bytes + "b") == "a?b");
        CHECK(printableInLine("a" + row.bytes + "b") == "a?b");
    }
    for (int control = 0x80; control <= 0x9F; ++control) {
        CAPTURE(control);
        CHECK(printable(std::string("\xC2") + static_cast<char>(control)) == "?");
    }
    CHECK(printable(std::string("\0", 1)) == "?");
}

TEST_CASE("bytes that are not text are shown as question marks, so that no terminal takes them for controls") {
    CHECK(printable("a\x9B"
                    "31m") == "a?31m");
    CHECK(printable("\xFF\xFE") == "??");
    CHECK(printable("a\xC3") == "a?");
    CHECK(printable("\xED\xA0\x80") == "???"); // half of a surrogate pair
}

TEST_CASE("letters of all languages are unchanged") {
    const std::string text =
        "VK14 01.61 \xC3\xA4\xC2\xA0\xE2\x82\xAC \xE3\x83\x97\xE3\x83\xAA \xD7\xA9 \xF0\x9F\x96\xA8";
    CHECK(printable(text) == text);
    CHECK(printableInLine(text) == text);
    CHECK(printableJson('"' + text + '"') == '"' + text + '"');
    CHECK(printable("").empty());
}

TEST_CASE("line ends are kept between lines, and replaced inside of one") {
    CHECK(printable("a\nb\n") == "a\nb\n");
    CHECK(printableInLine("a\nb\n") == "a?b?");
}

TEST_CASE("JSON keeps its value, with escapes for characters that control a terminal") {
    for (const Row& row : kCommands) {
        if (row.escape.empty()) continue;
        CAPTURE(row.what);
        CHECK(printableJson("{\n  \"key\": \"a" + row.bytes + "b\"\n}") == "{\n  \"key\": \"a" + row.escape + "b\"\n}");
    }
}

TEST_CASE("log text on standard error contains no terminal control characters") {
    const StandardErrorCapture capture;
    setSystemLogSink([](const std::string&) {});
    setSystemLogVerbose(true);
    systemLog("serial \x1B]0;title\x07 \xE2\x80\xAE\n");
    setSystemLogVerbose(false);
    standardErrorLog("ERROR: \x1B[2J\n");
    setSystemLogSink(nullptr);
    CHECK(capture.text() == "serial ?]0;title? ?\nERROR: ?[2J\n");
}
