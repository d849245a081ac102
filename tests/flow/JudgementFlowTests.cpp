// Verdicts in situations that the engine rarely produces: the tests generate the printer's events in their real order.
#include "SupervisedLab.h"

#include "protocol/CommandFrame.h"
#include "protocol/StatusTexts.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Results = std::vector<UpdateResult>;

constexpr std::uint32_t kImageSize = 2000;

struct MadeUp : SupervisedLab {
    MadeUp() {
        startWithVK14();
        supervisor.begin(printer(), UpdateSupervisor::Equal::install);
        rest(1s);
    }
    void command(std::uint32_t code, IOReturn result = kIOReturnSuccess, std::uint32_t length = 4) {
        happens(events::CommandSent{.command = code, .payloadLength = length, .code = result});
    }
    void restart() {
        for (const PrinterEvent::What& what : {PrinterEvent::What{events::Departed{}}, {events::Arrived{}}})
            happens(what);
    }
    void upToImage() {
        happens(events::ProgressStored{.value = 1});
        command(kCommandEnterLoader);
        restart();
        happens(events::ProgressStored{.value = 2});
        REQUIRE(update().state.phase == UpdatePhase::writing);
    }
    void image(std::uint32_t bytes, IOReturn result) {
        happens(events::WriteProgress{.bytesDone = bytes, .bytesTotal = kImageSize + kFrameHeaderSize});
        command(kCommandProgramFlash, result, kImageSize);
    }
    void upToReport() {
        upToImage();
        image(kImageSize + kFrameHeaderSize, kIOReturnSuccess);
        restart();
        happens(events::FirmwareVersionRead{.version = "VK14 01.61"});
        for (const int number : {1, 2}) {
            happens(events::TableBegun{.number = number, .total = 2, .name = "t"});
            command(kCommandTableName);
            command(kCommandTableWrite);
        }
        happens(events::TableInfoRead{.key = HOLVEN_TBPrinterColorTableVersion, .value = "0161"});
        happens(events::UpdateReported{.anyTable = true, .version = "VK14 01.61"});
    }
    void answered(const char* rawStatus) {
        happens(events::StatusRead{.rawStatus = rawStatus});
        happens(events::QuestionsEnded{});
    }
};

} // namespace

TEST_CASE("an image refused after its last byte may have been taken, until its loader waits for another one") {
    MadeUp lab;
    lab.upToImage();
    lab.image(kImageSize + kFrameHeaderSize, kIOUSBPipeStalled);
    lab.answered("00001");
    CHECK(lab.update().isOpen()); // it may be programming
    lab.happens(events::StatusRead{.rawStatus = kLoaderStatus});
    CHECK(lab.ends == Results{UpdateResult::imageNotTaken});
}

TEST_CASE("a loader that replies before the queries about a refused image have ended does not end its update") {
    MadeUp lab;
    lab.upToImage();
    lab.image(kImageSize + kFrameHeaderSize, kIOUSBPipeStalled);
    lab.happens(events::StatusRead{.rawStatus = kLoaderStatus});
    CHECK(lab.update().isOpen());
    lab.happens(events::QuestionsEnded{});
    CHECK(lab.ends == Results{UpdateResult::imageNotTaken});
}

TEST_CASE("an image refused before its last byte was not taken, whatever its printer replies") {
    MadeUp lab;
    lab.upToImage();
    lab.image(1000, kIOUSBPipeStalled);
    CHECK(lab.update().isOpen());
    lab.answered("00001");
    CHECK(lab.ends == Results{UpdateResult::imageNotTaken});
}

TEST_CASE("an image whose printer was detached before its end was reported is not refused") {
    MadeUp lab;
    lab.upToImage();
    lab.image(1000, kIOReturnNoDevice);
    lab.answered("00001");
    CHECK(lab.update().isOpen());
}

TEST_CASE("queries that do not end after the report are waited for at most a minute") {
    MadeUp lab;
    lab.upToReport();
    lab.advance(59s);
    CHECK(lab.update().isOpen());
    lab.advance(2s);
    CHECK(lab.ends == Results{UpdateResult::succeeded});
}

TEST_CASE("an ended update whose printer turns out to be in its loader does not reserve it again") {
    MadeUp lab;
    lab.supervisor.setSettings({.giveUpAfter = 1min});
    lab.upToImage();
    lab.image(kImageSize + kFrameHeaderSize, kIOReturnSuccess);
    lab.restart();
    lab.agree(); // to the generated update
    lab.rest(1s);
    REQUIRE(lab.operatorDesk.press("Cancel"));
    lab.rest(2min);
    REQUIRE(lab.ends == Results{UpdateResult::notBack});
    REQUIRE_FALSE(lab.locks.ask(lab.update().state.key));
    lab.happens(events::StatusRead{.rawStatus = kLoaderStatus});
    CHECK(lab.update().state.phase == UpdatePhase::backInLoader);
    CHECK(lab.ends == Results{UpdateResult::notBack});
    CHECK_FALSE(lab.locks.ask(lab.update().state.key));
}
