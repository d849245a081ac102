// One fault at any command of an arrival and an update: no failed update is reported as a success, and a second update
// completes the rest.
#include "SupervisedLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

constexpr int kCommands = 30; // of an arrival and an update, approximately

// The operator agrees, confirms, and closes reports.
void answerAll(SupervisedLab& lab) {
    for (int round = 0; round < 20; ++round) {
        lab.rest(1min);
        if (lab.operatorDesk.waiting() == 0) return;
        if (lab.operatorDesk.title() == "Attention:") lab.operatorDesk.setAgreed(true);
        REQUIRE(lab.operatorDesk.press(lab.operatorDesk.buttons().back()));
    }
    FAIL("the alerts do not end");
}

void update(SupervisedLab& lab) {
    if (lab.rows() == 0) return;
    lab.supervisor.begin(lab.printer(), UpdateSupervisor::Equal::install);
    answerAll(lab);
    lab.rest(5min);
}

bool isUpdated(SupervisedLab& lab) {
    return lab.rows() == 1 && lab.infoText(HOLVEN_TBPrinterFirmwareVersion) == "VK14 01.61";
}

} // namespace

TEST_CASE("a printer with a fault at any command is never called updated if it is not, and a second update succeeds") {
    std::string kind, value;
    SUBCASE("it is unplugged") {
        kind = "unplug", value = ":16";
    }
    SUBCASE("it stalls") {
        kind = "stall";
    }
    SUBCASE("it does not reply") {
        kind = "silence";
    }
    SUBCASE("it sends half a reply") {
        kind = "short";
    }
    SUBCASE("it sends garbage") {
        kind = "garbage";
    }
    SUBCASE("it replies late") {
        kind = "late";
    }
    SUBCASE("it announces too many bytes") {
        kind = "long-header";
    }
    SUBCASE("another program holds it") {
        kind = "holder";
    }
    int repeated = 0;
    for (int number = 1; number <= kCommands; number += kind == "unplug" ? 1 : 3) {
        CAPTURE(number);
        SupervisedLab lab(Lab::sampleArchive(), /*hasHistory=*/false);
        UpdateSettings settings;
        settings.giveUpAfter = 2min;
        lab.supervisor.setSettings(settings);
        lab.startWithVK14("fault=" + kind + "#" + std::to_string(number) + value);
        answerAll(lab);
        update(lab);
        const bool isCalledUpdated = !lab.ends.empty() && lab.ends.back() == UpdateResult::succeeded;
        if (isCalledUpdated) CHECK(isUpdated(lab));
        if (isCalledUpdated) continue;
        ++repeated;
        update(lab);
        CHECK(lab.result() == UpdateResult::succeeded);
        CHECK(isUpdated(lab));
    }
    if (kind == "unplug") CHECK(repeated > 5); // the faults did happen
}
