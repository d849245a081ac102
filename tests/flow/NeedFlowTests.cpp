// What a printer needs, as its row shows it first: one state of the closed list with its words.
#include "SupervisedLab.h"

#include "update/PrinterNeed.h"

#include <doctest/doctest.h>
#include <set>

using namespace zul;
using namespace std::chrono_literals;

namespace {

NeedState shownIn(SupervisedLab& lab, std::size_t row = 0) {
    return needOf(lab.supervisor, *lab.printer(row));
}

NeedState shownFor(const std::string& settings) {
    SupervisedLab lab;
    lab.startWithVK14(settings);
    return shownIn(lab);
}

NeedState shownWithFiles(void (*change)(const ChangedSamples& samples)) {
    const ChangedSamples samples;
    change(samples);
    SupervisedLab lab(samples.folder());
    lab.startWithVK14();
    return shownIn(lab);
}

} // namespace

TEST_CASE("each state has a name, a word and its place in the table") {
    std::set<std::string> names;
    std::set<std::string> words;
    for (int index = 0; index < kPrinterNeeds; ++index) {
        const auto need = static_cast<PrinterNeed>(index);
        names.insert(nameOfNeed(need));
        words.insert(wordFor(need));
    }
    CHECK(names.size() == kPrinterNeeds);
    CHECK(words.size() == kPrinterNeeds);
    CHECK(nameOfNeed(PrinterNeed::fileDamaged) == std::string("file damaged"));
    CHECK(toneOf(PrinterNeed::upToDate) == NeedTone::good);
    CHECK(toneOf(PrinterNeed::notReady) == NeedTone::attention);
    CHECK(toneOf(PrinterNeed::interrupted) == NeedTone::failed);
}

TEST_CASE("the versions decide for a printer that is ready") {
    CHECK(shownFor("") == NeedState{.need = PrinterNeed::updateAvailable,
                                    .word = "Update available",
                                    .detail = "VK14 01.60 → VK14 01.61"});
    CHECK(shownFor("firmware=VK14 01.61,tables=0161") ==
          NeedState{.need = PrinterNeed::upToDate, .word = "Up to date", .detail = ""});
    CHECK(shownFor("firmware=VK14 01.61,tables=0160") ==
          NeedState{.need = PrinterNeed::updateAvailable, .word = "Update available", .detail = "other color tables"});
    CHECK(shownFor("firmware=VK14 01.70") == NeedState{.need = PrinterNeed::newerInstalled,
                                                       .word = "Newer installed",
                                                       .detail = "VK14 01.61 is available"});
}

TEST_CASE("a printer that cannot be updated now says why, whatever its versions are") {
    for (const std::string versions : {"", "firmware=VK14 01.61,tables=0161,"}) {
        CAPTURE(versions);
        CHECK(shownFor(versions + "status=01100") ==
              NeedState{.need = PrinterNeed::notReady, .word = "Not ready", .detail = "Paper End"});
        CHECK(shownFor(versions + "id1284=off") ==
              NeedState{.need = PrinterNeed::notAnswering, .word = "Not answering", .detail = "Switch it off and on"});
        CHECK(shownFor(versions + "mode=loader") == NeedState{.need = PrinterNeed::interrupted,
                                                              .word = "Interrupted",
                                                              .detail = "start the update to complete it"});
    }
}

TEST_CASE("a printer that another process has shows which, before anything else") {
    SupervisedLab lab;
    lab.startWithVK14("status=01100");
    lab.bus.setHeldByOther(0, true);
    lab.printer()->updateInfo();
    lab.rest(1s);
    CHECK(shownIn(lab) ==
          NeedState{.need = PrinterNeed::inUse, .word = "In use", .detail = "another program uses the printer"});
}

TEST_CASE("a printer is being read until its first status") {
    SupervisedLab lab;
    lab.start();
    lab.attach("VK14,fault=late@STATUS:4000");
    lab.advance(1s);
    REQUIRE(lab.rows() == 1);
    CHECK(shownIn(lab).need == PrinterNeed::unknown);
    lab.rest();
    CHECK(shownIn(lab).need == PrinterNeed::updateAvailable);
}

TEST_CASE("a firmware file that cannot be installed is shown before the versions") {
    CHECK(shownWithFiles([](const ChangedSamples& samples) { samples.remove("VK14 01.61.fw"); }) ==
          NeedState{.need = PrinterNeed::fileMissing, .word = "File missing", .detail = "VK14 01.61, file missing"});
    CHECK(shownWithFiles([](const ChangedSamples& samples) { samples.damage("VK14 01.61.fw"); }) ==
          NeedState{.need = PrinterNeed::fileDamaged, .word = "File damaged", .detail = "VK14 01.61, file damaged"});
}

TEST_CASE("an open update shows what it waits for, its phase and its share") {
    SupervisedLab lab;
    lab.startWithVK14("restart=4000");
    lab.supervisor.begin(lab.printer(), UpdateSupervisor::Equal::install);
    lab.rest(1s);
    CHECK(shownIn(lab).need == PrinterNeed::updating);
    CHECK(shownIn(lab).detail == "Waiting for your answer");
    lab.agree();
    REQUIRE(lab.operatorDesk.press(lab.operatorDesk.buttons().at(1)));
    lab.advanceTo(UpdatePhase::writing);
    const NeedState writing = shownIn(lab);
    CHECK(writing.need == PrinterNeed::updating);
    CHECK(writing.detail == "writing the firmware");
    REQUIRE(writing.share);
    CHECK(*writing.share == lab.update().state.share());
    lab.rest();
    CHECK(shownIn(lab).need == PrinterNeed::upToDate);
}

TEST_CASE("a printer that is expected to return says so, and its advice replaces that when it is due") {
    SupervisedLab lab;
    lab.startWithVK14("fault=never-back@FLASH_REWRITE");
    const auto printer = lab.printer();
    lab.beginUpdate();
    lab.advanceTo(UpdatePhase::loaderAway);
    CHECK(needOf(lab.supervisor, *printer).need == PrinterNeed::restarting);
    CHECK(needOf(lab.supervisor, *printer).detail == "Leave it switched on");
    lab.rest(5min);
    REQUIRE(lab.update().advice != "");
    CHECK(needOf(lab.supervisor, *printer).detail == lab.update().advice);
}

TEST_CASE("an update that an earlier run began and did not end is to be completed") {
    SupervisedLab lab;
    lab.startWithVK14("firmware=VK14 01.61,tables=0161");
    REQUIRE(shownIn(lab).need == PrinterNeed::upToDate);
    lab.cutOffEarlierRun("color tables");
    CHECK(shownIn(lab).need == PrinterNeed::interrupted);
    CHECK(shownIn(lab).detail.starts_with("update was interrupted at "));
}

TEST_CASE("one line counts the printers by what they need, and leaves out what none needs") {
    using enum PrinterNeed;
    CHECK(summaryOfNeeds({}).empty());
    CHECK(summaryOfNeeds({unknown}) == "1 printer");
    CHECK(summaryOfNeeds({upToDate}) == "1 printer: 1 is up to date");
    CHECK(summaryOfNeeds({updateAvailable, updateAvailable, upToDate, updating, restarting, notReady, fileDamaged}) ==
          "7 printers: 2 are being updated, 2 need an update, 2 need attention, 1 is up to date");
    CHECK(summaryOfNeeds({updateAvailable, interrupted, newerInstalled}) ==
          "3 printers: 1 needs an update, 1 needs attention");
}
