// Time stamps as text.
#include "platform/foundation/LocalTime.h"

#include <cstdlib>
#include <ctime>
#include <doctest/doctest.h>

using namespace zul;

namespace {

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

constexpr std::int64_t kNow = 1'793'488'000'000; // 2026-10-31T23:06:40Z
// Central Europe as a rule: the machine may have no table of zones.
constexpr const char* kEurope = "CET-1CEST,M3.5.0,M10.5.0/3";

} // namespace

TEST_CASE("a time stamp is shown in the machine's zone to people and in UTC to programs") {
    const MachineZone zone(kEurope);
    CHECK(localTimeText(kNow) == "2026-11-01 00:06:40");
    CHECK(universalTimeText(kNow + 7) == "2026-10-31T23:06:40.007Z");
    CHECK(universalTimeText(-1) == "1969-12-31T23:59:59.999Z");
    CHECK(universalTimeText(-1000) == "1969-12-31T23:59:59.000Z");
    CHECK(universalTimeText(INT64_MAX) == "292278994-08-17T07:12:55.807Z");
    CHECK(universalTimeText(INT64_MIN) == "-292275055-05-16T16:47:04.192Z");
}

TEST_CASE("a day begins at midnight of the machine's zone, whatever its summer time") {
    const MachineZone zone(kEurope);
    CHECK(universalTimeText(momentFromText("2026-11-01", kNow).value()) == "2026-10-31T23:00:00.000Z");
    CHECK(universalTimeText(momentFromText("2026-07-01", kNow).value()) == "2026-06-30T22:00:00.000Z");
    // Where clocks go forward at midnight, the day begins an hour later.
    const MachineZone midnight("XST5XDT,M3.2.0/0,M11.1.0/0");
    CHECK(localTimeText(momentFromText("2026-03-08", kNow).value()) == "2026-03-08 01:00:00");
}

TEST_CASE("a time is accepted with and without seconds, in the machine's zone or in UTC") {
    const MachineZone zone(kEurope);
    CHECK(localTimeText(momentFromText("2026-11-01T10:00", kNow).value()) == "2026-11-01 10:00:00");
    CHECK(localTimeText(momentFromText("2026-11-01 10:00:59", kNow).value()) == "2026-11-01 10:00:59");
    CHECK(universalTimeText(momentFromText("2026-11-01T10:00Z", kNow).value()) == "2026-11-01T10:00:00.000Z");
    CHECK(universalTimeText(momentFromText("2028-02-29T23:59:59Z", kNow).value()) == "2028-02-29T23:59:59.000Z");
}

TEST_CASE("an age is subtracted from now") {
    CHECK(momentFromText("90s", kNow) == kNow - 90'000);
    CHECK(momentFromText("45m", kNow) == kNow - 2'700'000);
    CHECK(momentFromText("12h", kNow) == kNow - 43'200'000);
    CHECK(momentFromText("7d", kNow) == kNow - 604'800'000);
    CHECK(momentFromText("2w", kNow) == kNow - 1'209'600'000);
    CHECK(momentFromText("0d", kNow) == kNow);
}

TEST_CASE("text that is not a time is refused") {
    const MachineZone zone(kEurope);
    for (const char* text : {"",
                             "yesterday",
                             "7",
                             "d",
                             "-7d",
                             "7 d",
                             "7y",
                             "1.5h",
                             "99999999999999999999d",
                             "9999999999999d",
                             "2026",
                             "2026-11",
                             "2026-11-1",
                             "2026-13-01",
                             "2026-00-01",
                             "2026-06-31",
                             "2026-02-29",
                             "2026-11-00",
                             "2026-11-01T",
                             "2026-11-01T10",
                             "2026-11-01T10:",
                             "2026-11-01T24:00",
                             "2026-11-01T10:60",
                             "2026-11-01T10:00:60",
                             "2026-11-01T10:00:00.5",
                             "2026-11-01Z",
                             "2026-11-01T10:00z",
                             "2026-11-01T+9:00",
                             "2026-11-01x",
                             "20261101",
                             "2026-03-29T02:30"}) { // the last one was skipped by the change to summer time
        CAPTURE(text);
        CHECK_FALSE(momentFromText(text, kNow));
    }
}
