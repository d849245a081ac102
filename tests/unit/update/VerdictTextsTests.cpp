// The operator's texts of an ended update: the reason from the device info, and the one remedy.
#include "archive/ProductTable.h"
#include "unit/update/Followed.h"
#include "update/UpdateTexts.h"
#include "update/UpdateVerdict.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace zul::test;

namespace {

constexpr const char* kInLoader = "the printer is still in firmware update mode: it did not accept the firmware";
constexpr const char* kWaitsForRest =
    "the transfer of the firmware was interrupted, and the printer waits for the rest of it";
constexpr const char* kNotWritten = "the firmware was not written (the printer did not accept the data in time)";

std::string reason(UpdateResult result, const Followed& update) {
    return reasonFor(result, update.state(), expectationFor(kProductVK14));
}
std::string advice(UpdateResult result, const Followed& update) {
    return adviceAfter(result, update.state());
}

// The bus did not accept all of the image.
struct ImageRefused : Followed {
    ImageRefused() {
        upToImage();
        bytes(1000, 2032);
        image(kIOUSBTransactionTimeout);
    }
};

} // namespace

TEST_CASE("the reason why an image was not taken is the printer's last state") {
    ImageRefused update;
    CHECK(reason(UpdateResult::imageNotTaken, update) == kNotWritten);
    update.report(events::ReplyMissing{kIOUSBTransactionTimeout});
    CHECK(reason(UpdateResult::imageNotTaken, update) == kWaitsForRest);
    CHECK(advice(UpdateResult::imageNotTaken, update).starts_with("Switch the printer off and on"));
    update.report(events::ReplyRead{"x"});
    update.status(kLoaderStatus); // in its loader all the time
    CHECK(reason(UpdateResult::imageNotTaken, update) == kInLoader);
    CHECK(advice(UpdateResult::imageNotTaken, update).starts_with("Leave the printer switched on"));
    update.report(events::Departed{});
    update.report(events::ReplyMissing{kIOReturnNoDevice}); // a detached printer does not wait for an image
    CHECK(reason(UpdateResult::imageNotTaken, update) == kNotWritten);
    CHECK(advice(UpdateResult::imageNotTaken, update).starts_with("Leave the printer switched on"));
}

TEST_CASE("a printer that is back in its loader is shown so while it does not reply") {
    Followed update;
    update.upToTables();
    update.status(kLoaderStatus);
    update.report(events::ReplyMissing{kIOUSBTransactionTimeout});
    REQUIRE(update.state().phase == UpdatePhase::backInLoader);
    CHECK(reason(UpdateResult::imageNotTaken, update) == kInLoader);
    CHECK(advice(UpdateResult::imageNotTaken, update).starts_with("Leave the printer switched on"));
    update.report(events::Departed{});
    update.report(events::Arrived{}); // its status is not known yet
    CHECK(update.state().rawStatus.empty());
}

TEST_CASE("missing tables are counted, with the cause") {
    Followed none;
    none.upToTables();
    none.table(1);
    none.command(kCommandTableName, kIOUSBPipeStalled);
    none.finish();
    CHECK(reason(UpdateResult::tablesMissing, none) == "no color table was sent (the printer refused the data)");
    Followed one;
    one.upToTables();
    one.tables(1);
    one.finish();
    CHECK(reason(UpdateResult::tablesMissing, one) == "only 1 of 2 color tables were sent");
}

TEST_CASE("a printer that did not come back, one that stopped replying and one that is not ready have different "
          "texts") {
    const std::string kCheckCable = "Leave the printer switched on and check the USB cable.";
    Followed update;
    update.upToTables();
    CHECK(reason(UpdateResult::notBack, update) == "the printer stopped answering");
    CHECK(advice(UpdateResult::notBack, update).starts_with(kCheckCable));
    update.status("01000");
    CHECK(reason(UpdateResult::notBack, update) == "the printer reports: Cover Open");
    CHECK(advice(UpdateResult::notBack, update) ==
          "Leave the printer switched on, correct that and start the update again.");
    update.report(events::Departed{});
    CHECK(reason(UpdateResult::notBack, update) == "the printer did not come back");
    CHECK(advice(UpdateResult::notBack, update).starts_with(kCheckCable));
}

TEST_CASE("only a printer that replies in normal mode where a loader is expected is another printer") {
    const auto isAnother = [](const Followed& update) {
        const bool isNamed = reason(UpdateResult::notBack, update).find("is not in its loader") != std::string::npos;
        const bool isAdvised = advice(UpdateResult::notBack, update).starts_with("Check that this is the printer");
        CHECK(isNamed == isAdvised);
        return isNamed;
    };
    Followed update;
    update.upToLoader();
    CHECK_FALSE(isAnother(update)); // it has not replied yet
    update.status(kLoaderStatus);
    CHECK_FALSE(isAnother(update));
    update.status("00000");
    CHECK(isAnother(update));
    update.report(events::ReplyMissing{kIOUSBTransactionTimeout});
    CHECK_FALSE(isAnother(update));
    update.report(events::ReplyRead{"00000"});
    CHECK(isAnother(update));
    Followed later; // the same status after the image
    later.upToTables();
    later.status("00000");
    CHECK_FALSE(isAnother(later));
}

TEST_CASE("the state after a stop depends on the progress of the update") {
    Followed update;
    CHECK(advice(UpdateResult::stopped, update) == "Nothing has been changed in the printer.");
    update.upToLoader();
    CHECK(advice(UpdateResult::stopped, update).starts_with("The printer restarts into its loader or waits in it."));
    update.report(events::ProgressStored{2});
    CHECK(advice(UpdateResult::stopped, update).starts_with("The printer restarts into its loader or waits in it."));
    update.image();
    CHECK(advice(UpdateResult::stopped, update).starts_with("The printer has the firmware and restarts by itself."));
}

TEST_CASE("damaged files leave a printer in its loader only between the order and the image") {
    const std::string kInUpdateMode = "The firmware files are damaged. The printer is in firmware update mode:";
    const std::string kReplace = "The firmware files are damaged. Leave the printer switched on, replace the files";
    Followed update;
    update.report(events::ArchiveRefused{});
    CHECK(advice(UpdateResult::badFiles, update).starts_with(kReplace));
    update.upToLoader();
    update.report(events::ArchiveRefused{});
    CHECK(advice(UpdateResult::badFiles, update).starts_with(kInUpdateMode));
    Followed later;
    later.upToTables();
    later.report(events::ArchiveRefused{});
    CHECK(advice(UpdateResult::badFiles, later).starts_with(kReplace));
}

TEST_CASE("an image that the bus did not accept is not an order that the printer refused") {
    const ImageRefused image;
    CHECK(adviceFor(image.state()).find("Nothing has been changed") == std::string::npos);
}

TEST_CASE("a busy printer in its loader is not untouched, one that never got the order is") {
    for (const UpdateResult result : {UpdateResult::busy, UpdateResult::badFiles, UpdateResult::commandRefused}) {
        UpdateVerdict verdict;
        verdict.result = result;
        CHECK(verdict.isUntouched());
        verdict.isAfterOrder = true;
        CHECK_FALSE(verdict.isUntouched());
    }
}

// ---- the image judged by its version --------------------------------------------------------------------------------

TEST_CASE("an unconfirmed image that was not sent whole needs a version that is known to have changed") {
    const auto judged = [](std::optional<std::string> before, std::uint32_t bytesSent) {
        Followed update;
        update.monitor.beginUpdate(
            {.key = "key", .installedVersion = std::move(before), .availableVersion = "VK14 01.61", .tables = 2});
        update.upToImage();
        update.bytes(bytesSent, 2032);
        update.image(kIOReturnNoDevice);
        update.restart();
        update.version("VK14 01.61");
        update.tables(2);
        update.finish();
        return judgeByReplies(update.state(), expectationFor(kProductVK14));
    };
    CHECK(judged("VK14 01.60", 1000) == UpdateResult::succeeded);
    CHECK(judged("VK14 01.61", 1000) == UpdateResult::imageNotTaken);
    CHECK(judged(std::nullopt, 1000) == UpdateResult::imageNotTaken); // unknown: it may have had that version before
    CHECK(judged(std::nullopt, 2032) == UpdateResult::succeeded);
}

TEST_CASE("an image that the bus accepted whole needs no change of the version") {
    Followed update;
    update.monitor.beginUpdate(
        {.key = "key", .installedVersion = "VK14 01.61", .availableVersion = "VK14 01.61", .tables = 2});
    update.upToTables(); // its bytes were not reported individually
    update.tables(2);
    update.finish();
    REQUIRE_FALSE(update.state().isWholeImageSent);
    CHECK(judgeByReplies(update.state(), expectationFor(kProductVK14)) == UpdateResult::succeeded);
}

TEST_CASE("a failed update causes no further query that would not change the verdict") {
    Followed update;
    update.upToTables();
    update.tables(1);
    update.finish();
    REQUIRE(judgeByReplies(update.state(), expectationFor(kProductVK14)) == UpdateResult::tablesMissing);
    CHECK_FALSE(lacksAnswersOnly(update.state(), expectationFor(kProductVK14)));
}
