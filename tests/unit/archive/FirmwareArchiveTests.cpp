// The archive of a run: every file is read once, and the returned contents are the verified ones.
#include "archive/FirmwareArchive.h"

#include "archive/KeyedDigest.h"
#include "platform/foundation/Bundle.h"
#include "support/TemporaryFolder.h"
#include "support/WatchedReader.h"

#include <algorithm>
#include <doctest/doctest.h>
#include <thread>

using namespace zul;

namespace {

constexpr const char* kKey = "TBUSBPrinterZUL";
constexpr const char* kFirmware = "VK14 01.61.fw";
constexpr const char* kTable300 = "VK14_300_0161.cwd";
constexpr const char* kTable600 = "VK14_600_0161.cwd";
constexpr const char* kImage = "S00600004844521B\n"; // 17 bytes

// A folder with the files of a VK14 and their digests, and an archive that reads it.
struct Shelf {
    Shelf() {
        folder.write(kFirmware, kImage);
        folder.write(kTable300, "table 300");
        folder.write(kTable600, "table 600");
        supplyDigests();
    }
    /// The digests of the files as they are now.
    void supplyDigests() const {
        FirmwareDigests digests;
        for (const char* name : {kFirmware, kTable300, kTable600}) {
            const std::string contents = TemporaryFolder::read(folder / name);
            if (!contents.empty()) digests.digests[name] = keyedDigest(kKey, dataFromText(contents));
        }
        REQUIRE(writeFirmwareDigests(folder.path, digests));
    }
    bool passes() { return archive.check(product, kKey).hasPassed; }
    std::string verified(const std::string& name = kFirmware) {
        const auto file = archive.verifiedFile(name, kKey);
        return file ? std::string(file->contents()->begin(), file->contents()->end()) : "(none)";
    }
    std::string forReading(const std::string& name = kFirmware) {
        const auto file = archive.fileForReading(name, kKey);
        return file ? std::string(file->contents()->begin(), file->contents()->end()) : "(none)";
    }
    std::vector<ArchiveFile::State> states() {
        std::vector<ArchiveFile::State> states;
        for (const ArchiveFile& file : archive.check(product, kKey).files) states.push_back(file.state);
        return states;
    }

    const TemporaryFolder folder;
    const Bundle bundle{{}, folder.path};
    const Product& product = *productWithID(kProductVK14);
    const std::shared_ptr<WatchedReader> reader = std::make_shared<WatchedReader>();
    FirmwareArchive archive{bundle, reader};
};

using State = ArchiveFile::State;

} // namespace

TEST_CASE("a row is verified in order, and every file is opened once, however often it is checked and returned") {
    Shelf shelf;
    const ArchiveCheck check = shelf.archive.check(shelf.product, kKey);
    CHECK(check.hasPassed);
    REQUIRE(check.files.size() == 3);
    CHECK(check.files[0].name == kFirmware);
    CHECK(check.files[0].path == shelf.folder / kFirmware);
    CHECK(check.files[0].digest == keyedDigest(kKey, dataFromText(kImage)));
    CHECK(check.files[2].name == kTable600);
    for (int again = 0; again < 3; ++again) {
        CHECK(shelf.passes());
        CHECK(shelf.verified() == kImage);
        CHECK(shelf.forReading(kTable600) == "table 600");
        CHECK(shelf.archive.problems(&shelf.product, kKey).empty());
        CHECK(shelf.archive.available(shelf.product, kKey).isReady());
    }
    CHECK(shelf.reader->opened() ==
          std::map<std::string, int>{{kFirmware, 1}, {kTable300, 1}, {kTable600, 1}, {kDigestFileName, 1}});
}

TEST_CASE("replacing a file after the check does not change the returned contents, and the next check refuses it") {
    Shelf shelf;
    REQUIRE(shelf.passes());
    shelf.folder.write("new", "another image");
    std::filesystem::rename(shelf.folder / "new", shelf.folder / kFirmware);
    CHECK(shelf.verified() == kImage);
    CHECK(shelf.forReading() == kImage);
    CHECK(shelf.states() == std::vector<State>{State::differs}); // stops there
    CHECK(shelf.verified() == kImage);
    CHECK(shelf.forReading() == kImage);
    CHECK(shelf.reader->timesOpened(kFirmware) == 2);
}

TEST_CASE("a file that is truncated or rewritten in place after the check is detected by the next one") {
    for (const std::string& changed : {std::string("S006"), std::string("S00600004844521C\n")}) {
        CAPTURE(changed);
        Shelf shelf;
        REQUIRE(shelf.passes());
        shelf.folder.write(kFirmware, changed);
        CHECK(shelf.verified() == kImage);
        CHECK_FALSE(shelf.passes());
        CHECK(shelf.verified() == kImage);
    }
}

TEST_CASE("a file replaced together with its digest is verified again, and its new contents are returned") {
    Shelf shelf;
    REQUIRE(shelf.passes());
    shelf.folder.write(kFirmware, "S9030000FC\n");
    shelf.supplyDigests();
    CHECK(shelf.verified() == kImage); // until the next check
    CHECK(shelf.passes());
    CHECK(shelf.verified() == "S9030000FC\n");
}

TEST_CASE("two files with exchanged names are refused") {
    Shelf shelf;
    REQUIRE(shelf.passes());
    std::filesystem::rename(shelf.folder / kTable300, shelf.folder / "kept");
    std::filesystem::rename(shelf.folder / kTable600, shelf.folder / kTable300);
    std::filesystem::rename(shelf.folder / "kept", shelf.folder / kTable600);
    CHECK(shelf.states() == std::vector<State>{State::matches, State::differs});
    CHECK(shelf.verified(kTable300) == "table 300");
    CHECK(shelf.verified(kTable600) == "table 600");
}

TEST_CASE("a file replaced between its check and its opening is judged by the contents that were read") {
    Shelf shelf;
    shelf.reader->beforeRead = [&](const std::string& name) {
        if (name == kTable600) shelf.folder.write(kTable600, "another table");
    };
    CHECK(shelf.states() == std::vector<State>{State::matches, State::matches, State::differs});
    CHECK(shelf.verified(kTable600) == "(none)");
}

TEST_CASE("a file with new times and the same contents is read again and keeps its object") {
    Shelf shelf;
    REQUIRE(shelf.passes());
    const auto before = shelf.archive.verifiedFile(kFirmware, kKey);
    shelf.folder.write(kFirmware, kImage);
    CHECK(shelf.passes());
    CHECK(shelf.reader->timesOpened(kFirmware) == 2);
    CHECK(shelf.archive.verifiedFile(kFirmware, kKey) == before);
}

TEST_CASE("a removed file is still returned until a check has missed it, and to an upload even after that") {
    Shelf shelf;
    REQUIRE(shelf.passes());
    std::filesystem::remove(shelf.folder / kFirmware);
    CHECK(shelf.forReading() == kImage);
    CHECK(shelf.verified() == kImage);
    CHECK(shelf.passes()); // because of its tables
    CHECK(shelf.forReading() == "(none)");
    CHECK(shelf.verified() == kImage);
}

TEST_CASE("a check without any file does not pass, and its files are reported as missing") {
    Shelf shelf;
    for (const char* name : {kFirmware, kTable300, kTable600}) std::filesystem::remove(shelf.folder / name);
    CHECK_FALSE(shelf.passes());
    CHECK(shelf.states() == std::vector<State>(3, State::missing));
}

TEST_CASE("an unchecked file is read as it is and never used as a verified one") {
    Shelf shelf;
    CHECK(shelf.verified() == "(none)");
    CHECK(shelf.forReading() == kImage);
    shelf.folder.write(kFirmware, "changed");
    CHECK(shelf.forReading() == "changed");
    CHECK(shelf.verified() == "(none)");
    CHECK_FALSE(shelf.passes());
    CHECK(shelf.verified() == "(none)");
    CHECK(shelf.forReading("none.fw") == "(none)");
}

TEST_CASE("an edited digest file is read again: files that matched before may no longer match") {
    Shelf shelf;
    REQUIRE(shelf.passes());
    shelf.folder.write(kDigestFileName, R"({"VK14 01.61.fw": "00"})");
    CHECK(shelf.states() == std::vector<State>{State::differs});
    shelf.folder.write(kDigestFileName, "{ no json");
    CHECK(shelf.states() == std::vector<State>{State::noDigest});
    std::filesystem::remove(shelf.folder / kDigestFileName);
    CHECK(shelf.states() == std::vector<State>{State::noDigest});
    CHECK(shelf.reader->timesOpened(kFirmware) == 1);
}

TEST_CASE("a file whose digest is supplied after it was read is returned as verified") {
    Shelf shelf;
    std::filesystem::remove(shelf.folder / kDigestFileName);
    CHECK_FALSE(shelf.passes());
    CHECK(shelf.verified() == "(none)");
    shelf.supplyDigests();
    CHECK(shelf.passes());
    CHECK(shelf.verified() == kImage);
}

TEST_CASE("a damaged file that is repaired passes the next check") {
    Shelf shelf;
    shelf.folder.write(kTable600, "damaged");
    CHECK_FALSE(shelf.passes());
    CHECK_FALSE(shelf.passes());
    CHECK(shelf.reader->timesOpened(kTable600) == 1); // the digest that did not match is remembered as well
    shelf.folder.write(kTable600, "table 600");
    CHECK(shelf.passes());
}

TEST_CASE("another key yields other digests, and a file verified under one key is not verified under another") {
    Shelf shelf;
    REQUIRE(shelf.passes());
    CHECK_FALSE(shelf.archive.check(shelf.product, "Other").hasPassed);
    CHECK(shelf.archive.verifiedFile(kFirmware, "Other") == nullptr);
    CHECK(shelf.passes());
}

TEST_CASE("a check skips files that cannot be read, and too large ones never match") {
    Shelf shelf;
    shelf.reader->results = {{kFirmware, FileResult::unreadable}, {kTable300, FileResult::notAFile}};
    CHECK(shelf.states() == std::vector<State>{State::unreadable, State::notAFile, State::matches});
    CHECK(shelf.passes());
    shelf.reader->results = {{kFirmware, FileResult::tooLarge}};
    CHECK(shelf.states() == std::vector<State>{State::differs});
}

TEST_CASE("a survey checks every file, also after one that differs") {
    Shelf shelf;
    shelf.folder.write(kFirmware, "damaged");
    const ArchiveCheck survey = shelf.archive.survey(shelf.product, kKey);
    CHECK_FALSE(survey.hasPassed);
    REQUIRE(survey.files.size() == 3);
    CHECK(survey.files[0].state == State::differs);
    CHECK(survey.files[2].state == State::matches);
    shelf.folder.write(kFirmware, kImage);
    CHECK(shelf.archive.survey(shelf.product, kKey).hasPassed);
}

TEST_CASE("a file that is not in the archive is found among the resources") {
    const TemporaryFolder resources;
    Shelf shelf;
    std::filesystem::rename(shelf.folder / kTable600, resources / kTable600);
    const Bundle bundle(resources.path, shelf.folder.path);
    FirmwareArchive archive(bundle, shelf.reader);
    const ArchiveCheck check = archive.check(shelf.product, kKey);
    CHECK(check.hasPassed);
    REQUIRE(check.files.size() == 3);
    CHECK(check.files[2].path == resources / kTable600);
}

TEST_CASE("the padded copy and the S-record check of an image are made once and shared") {
    Shelf shelf;
    REQUIRE(shelf.passes());
    const auto image = shelf.archive.verifiedFile(kFirmware, kKey);
    CHECK(image->padded()->size() == 20);
    CHECK(image->padded() == image->padded());
    CHECK(image->isSRecordText());
    const FirmwareFile whole(dataFromText("12345678"));
    CHECK(whole.padded() == whole.contents()); // no copy without padding
    CHECK_FALSE(whole.isSRecordText());
}

TEST_CASE("printers that verify at the same time share one reading of each file") {
    Shelf shelf;
    std::vector<std::thread> threads;
    std::atomic<int> passed{0};
    for (int number = 0; number < 8; ++number) {
        threads.emplace_back([&] {
            for (int again = 0; again < 20; ++again) {
                if (shelf.passes() && shelf.archive.verifiedFile(kTable300, kKey)->padded()->size() == 12) ++passed;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    CHECK(passed == 160);
    CHECK(shelf.reader->opened() ==
          std::map<std::string, int>{{kFirmware, 1}, {kTable300, 1}, {kTable600, 1}, {kDigestFileName, 1}});
}
