#include "update/LockAnswer.h"

#include <doctest/doctest.h>

using namespace zul;

namespace {

const LockAnswer kAnswer{.program = "zulctl",
                         .pid = 4711,
                         .user = "kiosk",
                         .since = 1700000000,
                         .activity = "update",
                         .phase = "writing",
                         .deviceID = "MFG:Z;MDL:VK;SERN:1;"};

} // namespace

TEST_CASE("the reply of a lock's holder is read back as it was sent") {
    const std::string line = lockAnswerLine(kAnswer);
    CHECK(line.ends_with('\n'));
    CHECK(line.find('\n') == line.size() - 1);
    CHECK(parseLockAnswer(line) == kAnswer);
}

TEST_CASE("a reply has the names that other programs search for") {
    CHECK(lockAnswerLine({.program = "zulctl", .pid = 3, .user = "u", .since = 5, .activity = "claim"}) ==
          R"({"activity":"claim","deviceID":"","phase":"","pid":3,"program":"zulctl","since":5,"user":"u"})"
          "\n");
}

TEST_CASE("missing or wrongly typed members of a reply are left empty") {
    CHECK(parseLockAnswer("{}") == LockAnswer{});
    CHECK(parseLockAnswer(R"({"program": 1, "pid": "4", "user": null, "since": [], "activity": {}, "phase": true})") ==
          LockAnswer{});
    CHECK(parseLockAnswer(R"({"pid": -4, "since": -1})") == LockAnswer{});
    CHECK(parseLockAnswer(R"({"pid": 4.5, "since": 1e300})") == LockAnswer{});
    CHECK(parseLockAnswer(R"({"pid": 2147483648, "since": 9223372036854775808})") == LockAnswer{});
    CHECK(parseLockAnswer(R"({"pid": 2147483647, "since": 9223372036854775807})") ==
          LockAnswer{.pid = 2147483647, .since = 9223372036854775807});
}

TEST_CASE("data that is not a reply is refused") {
    for (const char* line : {"", "\n", "x", "[]", "3", "\"text\"", "null", "{\"pid\": 3", "{\"phase\": \"\xFF\"}",
                             "{\"pid\": 3} {\"pid\": 4}", "{\"since\": 1e400}"}) {
        CAPTURE(line);
        CHECK_FALSE(parseLockAnswer(line));
    }
    CHECK_FALSE(parseLockAnswer(std::string(kLongestLockAnswer, '[')));
}

TEST_CASE("a reply longer than the limit is refused, one of exactly the limit is read") {
    std::string line = R"({"phase": "writing"})";
    line += std::string(kLongestLockAnswer - line.size(), ' ');
    CHECK(parseLockAnswer(line) == LockAnswer{.phase = "writing"});
    CHECK_FALSE(parseLockAnswer(line + ' '));
}

TEST_CASE("texts of a reply cannot move the cursor or change the text direction") {
    const auto answer =
        parseLockAnswer(R"({"program": "a\u001b[31mb", "user": "\u0085\u202ec\u2066", "phase": "d\u007f"})");
    REQUIRE(answer);
    CHECK(answer->program == "a[31mb");
    CHECK(answer->user == "c");
    CHECK(answer->phase == "d");
    CHECK(parseLockAnswer(R"({"phase": "Größe \u20ac \ud83d\ude00"})")->phase == "Größe € 😀");
}

TEST_CASE("long texts of a reply are cut between characters, and the line remains within its limit") {
    LockAnswer answer = kAnswer;
    answer.program = answer.user = answer.activity = answer.phase = 'a' + std::string(500, '"');
    const std::string line = lockAnswerLine(answer);
    CHECK(line.size() <= kLongestLockAnswer);
    const auto again = parseLockAnswer(line);
    REQUIRE(again);
    CHECK(again->phase.size() == 128);

    answer.phase = std::string(127, 'a') + "€";
    CHECK(parseLockAnswer(lockAnswerLine(answer))->phase == std::string(127, 'a'));
}

TEST_CASE("bytes that are not text do not prevent a reply from being sent") {
    const auto answer = parseLockAnswer(lockAnswerLine({.user = "caf\xE9"}));
    REQUIRE(answer);
    CHECK(answer->user == "caf\xEF\xBF\xBD");
}

TEST_CASE("a device ID of a reply may be longer than a name, and is cut at 1024 bytes") {
    LockAnswer answer = kAnswer;
    answer.deviceID = std::string(1024, '"'); // the longest line: each of these is escaped
    CHECK(parseLockAnswer(lockAnswerLine(answer)) == answer);
    answer.deviceID += 'x';
    CHECK(parseLockAnswer(lockAnswerLine(answer))->deviceID == std::string(1024, '"'));
    CHECK(parseLockAnswer(R"({"deviceID": 7})") == LockAnswer{});
}
