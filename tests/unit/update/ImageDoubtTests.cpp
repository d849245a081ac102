// When it is unknown whether a printer has the image, and the effect on the operator's texts and the verdict.
#include "archive/ProductTable.h"
#include "unit/update/Followed.h"
#include "update/UpdateTexts.h"
#include "update/UpdateVerdict.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace zul::test;

namespace {

const std::string kCutOffAdvice = "The printer was disconnected while the firmware was written to it.";
const std::string kTablesAdvice = "The printer has new firmware and does not answer.";

// It was detached during the image and is back.
struct CutOff : Followed {
    CutOff() {
        upToImage();
        bytes(1000, 2032);
        restart();
    }
};

} // namespace

TEST_CASE("an interrupted image is in doubt when its printer is back, until a version is read") {
    CutOff update;
    CHECK(update.state().phase == UpdatePhase::restarted);
    CHECK(update.state().isImageInDoubt());
    CHECK(adviceFor(update.state()).starts_with(kCutOffAdvice));
    update.version("VK14 01.61");
    CHECK_FALSE(update.state().isImageInDoubt());
    CHECK(adviceFor(update.state()).starts_with(kTablesAdvice));
}

TEST_CASE("an image whose write was not completed is in doubt when its printer is back") {
    Followed update;
    update.upToImage();
    update.bytes(2032, 2032);
    update.image(kIOUSBTransactionTimeout);
    CHECK_FALSE(update.state().isImageInDoubt()); // the loader is still attached and can be queried
    update.restart();
    CHECK(update.state().phase == UpdatePhase::restarted);
    CHECK(update.state().isImageInDoubt());
}

TEST_CASE("an image that was written to its end is not in doubt, also before a version is read") {
    Followed update;
    update.upToImage();
    update.image();
    CHECK_FALSE(update.state().isImageInDoubt());
    update.restart();
    CHECK(update.state().phase == UpdatePhase::restarted);
    CHECK_FALSE(update.state().currentVersion);
    CHECK_FALSE(update.state().isImageInDoubt());
    CHECK(adviceFor(update.state()).starts_with(kTablesAdvice));
}

TEST_CASE("an image is not in doubt while its printer is detached, nor when it is back in its loader") {
    Followed update;
    update.upToImage();
    update.bytes(1000, 2032);
    CHECK_FALSE(update.state().isImageInDoubt()); // it is being written
    update.report(events::Departed{});
    CHECK(update.state().phase == UpdatePhase::cutOff);
    CHECK_FALSE(update.state().isImageInDoubt());
    update.report(events::Arrived{});
    update.status(kLoaderStatus); // it was not accepted, which is certain
    CHECK(update.state().phase == UpdatePhase::backInLoader);
    CHECK_FALSE(update.state().isImageInDoubt());
}

TEST_CASE("a second image is in doubt independently of the first one") {
    CutOff update;
    update.version("VK14 01.61");
    update.report(events::ProgressStored{2});
    update.bytes(500, 2032);
    update.restart();
    CHECK(update.state().isImageInDoubt());
    update.report(events::ProgressStored{2});
    update.image();
    update.restart();
    CHECK_FALSE(update.state().isImageInDoubt());
}

TEST_CASE("an update that is followed from its tables on had its image before, and its version decides") {
    const UpdateExpectation expected = expectationFor(kProductVK14);
    for (const char* version : {"VK14 01.61", "VK14 01.60"}) {
        CAPTURE(version);
        Followed update;
        update.monitor.beginUpdate({.key = "key", .availableVersion = "VK14 01.61", .tables = 2});
        update.tables(2);
        update.finish();
        CHECK(judgeByReplies(update.state(), expected) == UpdateResult::versionUnread);
        update.version(version);
        const bool isAvailable = version == expected.version;
        CHECK(judgeByReplies(update.state(), expected) ==
              (isAvailable ? UpdateResult::succeeded : UpdateResult::otherVersion));
    }
}
