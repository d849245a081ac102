// Which step of an update is shown as the current one, or as the one that failed.
#include "unit/update/Followed.h"
#include "update/UpdateStep.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace zul::test;

namespace {

UpdateStep shownStep(const Followed& update, UpdateResult result = UpdateResult::open, bool isAfterOrder = true) {
    return stepOf(update.state(), {.result = result, .reason = {}, .isAfterOrder = isAfterOrder});
}

} // namespace

TEST_CASE("a running update is at the step of its phase") {
    Followed update;
    CHECK(shownStep(update) == UpdateStep::checking);
    update.upToImage();
    CHECK(shownStep(update) == UpdateStep::writingFirmware);
    update.bytes(2032, 2032);
    update.image(kIOReturnSuccess);
    update.restart();
    CHECK(shownStep(update) == UpdateStep::restartingIntoFirmware);
}

TEST_CASE("for a printer that is back from an interrupted image the failed step is writing the firmware") {
    Followed update;
    update.upToImage();
    update.bytes(1000, 2032);
    update.restart();
    CHECK(update.state().phase == UpdatePhase::restarted);
    CHECK(shownStep(update) == UpdateStep::writingFirmware);
    CHECK(shownStep(update, UpdateResult::notBack) == UpdateStep::writingFirmware);
    update.version("VK14 01.60"); // the old one: the image was not taken
    CHECK(shownStep(update, UpdateResult::otherVersion) == UpdateStep::writingFirmware);
}

TEST_CASE("for a printer that took the image and reports another version the failed step is its restart") {
    Followed update;
    update.upToImage();
    update.bytes(2032, 2032);
    update.image(kIOReturnSuccess);
    update.restart();
    CHECK(shownStep(update, UpdateResult::versionUnread) == UpdateStep::restartingIntoFirmware);
    CHECK(shownStep(update, UpdateResult::otherVersion) == UpdateStep::restartingIntoFirmware);
}

TEST_CASE("a result that belongs to one step marks that step, whatever the phase") {
    const Followed update;
    CHECK(shownStep(update, UpdateResult::commandRefused) == UpdateStep::enteringLoader);
    for (const UpdateResult result : {UpdateResult::tablesMissing, UpdateResult::tablesDiffer,
                                      UpdateResult::clearRefused, UpdateResult::identityLost}) {
        CHECK(shownStep(update, result) == UpdateStep::writingTables);
    }
}

TEST_CASE("damaged files stop an update at its check, or at the image if the printer is already in its loader") {
    const Followed update;
    CHECK(shownStep(update, UpdateResult::badFiles, false) == UpdateStep::checking);
    CHECK(shownStep(update, UpdateResult::badFiles, true) == UpdateStep::writingFirmware);
    CHECK(shownStep(update, UpdateResult::imageNotTaken, true) == UpdateStep::writingFirmware);
}
