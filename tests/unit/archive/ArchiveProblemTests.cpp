// Reasons why an update could not succeed, and the available version, each with its texts.
#include "archive/ArchiveTexts.h"
#include "archive/KeyedDigest.h"
#include "platform/foundation/Bundle.h"
#include "support/TemporaryFolder.h"
#include "support/WatchedReader.h"

#include <doctest/doctest.h>
#include <sys/stat.h>

using namespace zul;

namespace {

constexpr const char* kKey = "TBUSBPrinterZUL";
constexpr const char* kFirmware = "VK14 01.61.fw";
constexpr const char* kTable300 = "VK14_300_0161.cwd";
constexpr const char* kTable600 = "VK14_600_0161.cwd";

using Kind = ArchiveProblem::Kind;

struct Shelf {
    Shelf() {
        folder.write(kFirmware, "S00600004844521B\n");
        folder.write(kTable300, "table 300");
        folder.write(kTable600, "table 600");
        supplyDigests({kFirmware, kTable300, kTable600});
    }
    void supplyDigests(const std::vector<std::string>& names) const {
        FirmwareDigests digests;
        for (const std::string& name : names) {
            digests.digests[name] = keyedDigest(kKey, dataFromText(TemporaryFolder::read(folder / name)));
        }
        REQUIRE(writeFirmwareDigests(folder.path, digests));
    }
    std::vector<ArchiveProblem> problems() { return archive.problems(&product, kKey); }
    ArchiveProblem onlyProblem() {
        const auto all = problems();
        REQUIRE(all.size() == 1);
        return all.front();
    }
    AvailableFirmware::State available() { return archive.available(product, kKey).state; }
    std::string place() const { return folder.path.string(); }

    const TemporaryFolder folder;
    const Bundle bundle{{}, folder.path};
    const Product& product = *productWithID(kProductVK14);
    const std::shared_ptr<WatchedReader> reader = std::make_shared<WatchedReader>();
    FirmwareArchive archive{bundle, reader};
};

} // namespace

TEST_CASE("a complete and valid archive has no problem, and its version is ready") {
    Shelf shelf;
    CHECK(shelf.problems().empty());
    const AvailableFirmware available = shelf.archive.available(shelf.product, kKey);
    CHECK(available.isReady());
    CHECK(availableText(available) == "VK14 01.61");
    CHECK(nameOfAvailability(available.state) == std::string("ready"));
}

TEST_CASE("a missing table is reported with its folder and the commands that fix it") {
    Shelf shelf;
    std::filesystem::remove(shelf.folder / kTable300);
    const ArchiveProblem problem = shelf.onlyProblem();
    CHECK(problem.kind == Kind::fileMissing);
    CHECK(problem.path == shelf.folder / kTable300);
    CHECK(messageOf(problem) == "VK14_300_0161.cwd is missing in " + shelf.place());
    CHECK(remedyOf(problem) == "Copy it from the vendor's download into " + shelf.place() +
                                   ", then run: zulctl archive verify " + shelf.place());
    CHECK(shelf.available() == AvailableFirmware::State::ready); // the firmware file itself is present
}

TEST_CASE("the remedy for a missing file without a digest names the command that creates digests") {
    Shelf shelf;
    std::filesystem::remove(shelf.folder / kTable300);
    shelf.supplyDigests({kFirmware, kTable600});
    CHECK(remedyOf(shelf.onlyProblem()) == "Copy it from the vendor's download into " + shelf.place() +
                                               ", then run: zulctl archive digest " + shelf.place());
}

TEST_CASE("without its firmware file a version cannot be installed") {
    Shelf shelf;
    std::filesystem::remove(shelf.folder / kFirmware);
    CHECK(shelf.onlyProblem().kind == Kind::fileMissing);
    CHECK(shelf.available() == AvailableFirmware::State::missing);
    CHECK(availableText(shelf.archive.available(shelf.product, kKey)) == "VK14 01.61, file missing");
}

TEST_CASE("every damaged file is reported, not only the first") {
    Shelf shelf;
    shelf.folder.write(kFirmware, "damaged");
    shelf.folder.write(kTable600, "");
    const auto problems = shelf.problems();
    REQUIRE(problems.size() == 2);
    CHECK(problems[0].kind == Kind::fileDiffers);
    CHECK(messageOf(problems[0]) == "VK14 01.61.fw in " + shelf.place() + " is damaged: it does not match its digest");
    CHECK(problems[1].kind == Kind::fileDiffers);
    CHECK(problems[1].path == shelf.folder / kTable600);
    CHECK(shelf.available() == AvailableFirmware::State::damaged);
    CHECK(availableText(shelf.archive.available(shelf.product, kKey)) == "VK14 01.61, file damaged");
}

TEST_CASE("a firmware file that matches its digest but is not S-record text cannot be installed") {
    Shelf shelf;
    shelf.folder.write(kFirmware, "not an image");
    shelf.supplyDigests({kFirmware, kTable300, kTable600});
    CHECK(shelf.onlyProblem().kind == Kind::firmwareNotSRecords);
    CHECK(shelf.available() == AvailableFirmware::State::damaged);
}

TEST_CASE("a file without a digest is a separate problem") {
    Shelf shelf;
    shelf.supplyDigests({kTable300, kTable600});
    const ArchiveProblem problem = shelf.onlyProblem();
    CHECK(problem.kind == Kind::fileWithoutDigest);
    CHECK(messageOf(problem) == "VK14 01.61.fw in " + shelf.place() + " has no digest and cannot be verified");
    CHECK(remedyOf(problem).ends_with(" zulctl archive digest " + shelf.place()));
    CHECK(shelf.available() == AvailableFirmware::State::noDigest);
    CHECK(nameOfAvailability(shelf.available()) == std::string("no digest"));
}

TEST_CASE("a digest file that is missing, damaged or not a file is one problem, in addition to missing files") {
    Shelf shelf;
    std::filesystem::remove(shelf.folder / kTable600);
    std::filesystem::remove(shelf.folder / kDigestFileName);
    const auto problems = shelf.problems();
    REQUIRE(problems.size() == 2);
    CHECK(problems[0].kind == Kind::digestsMissing);
    CHECK(messageOf(problems[0]) ==
          "digests.json is missing in " + shelf.place() + ": the firmware files cannot be verified");
    CHECK(problems[1].kind == Kind::fileMissing);
    CHECK(shelf.available() == AvailableFirmware::State::noDigest);

    shelf.folder.write(kTable600, "table 600");
    shelf.folder.write(kDigestFileName, "{ no json");
    CHECK(shelf.onlyProblem().kind == Kind::digestsDamaged);
    std::filesystem::remove(shelf.folder / kDigestFileName);
    REQUIRE(::mkfifo((shelf.folder / kDigestFileName).c_str(), 0600) == 0);
    CHECK(shelf.onlyProblem().kind == Kind::digestsUnreadable);
}

TEST_CASE("a folder or a pipe in place of a file is a problem and does not block") {
    Shelf shelf;
    for (const bool isPipe : {false, true}) {
        CAPTURE(isPipe);
        std::filesystem::remove(shelf.folder / kFirmware);
        if (isPipe) {
            REQUIRE(::mkfifo((shelf.folder / kFirmware).c_str(), 0600) == 0);
        } else {
            std::filesystem::create_directory(shelf.folder / kFirmware);
        }
        const ArchiveProblem problem = shelf.onlyProblem();
        CHECK(problem.kind == Kind::fileNotRegular);
        CHECK(messageOf(problem) == "VK14 01.61.fw in " + shelf.place() + " is not a file");
        CHECK(shelf.available() == AvailableFirmware::State::unreadable);
    }
}

TEST_CASE("a file that cannot be read is reported with the command that makes it readable") {
    Shelf shelf;
    shelf.reader->results = {{kTable300, FileResult::unreadable}, {kFirmware, FileResult::unreadable}};
    const auto problems = shelf.problems();
    REQUIRE(problems.size() == 2);
    CHECK(messageOf(problems[1]) == "VK14_300_0161.cwd in " + shelf.place() + " cannot be read");
    CHECK(remedyOf(problems[1]).ends_with("chmod a+r " + shelf.place() + "/VK14_300_0161.cwd"));
    CHECK(remedyOf(problems[0]).ends_with("chmod a+r '" + shelf.place() + "/VK14 01.61.fw'"));
    CHECK(availableText(shelf.archive.available(shelf.product, kKey)) == "VK14 01.61, file cannot be read");
}

TEST_CASE("a missing archive folder is the only problem, and its name is reported") {
    const TemporaryFolder folder;
    const auto place = folder / "it's not here";
    const Bundle bundle({}, place);
    FirmwareArchive archive(bundle);
    const auto problems = archive.problems(productWithID(kProductVK14), kKey);
    REQUIRE(problems.size() == 1);
    CHECK(problems[0].kind == Kind::noFolder);
    CHECK(messageOf(problems[0]) == "The folder " + place.string() + " with the firmware files is missing");
    CHECK(remedyOf(problems[0]) == "Name the folder with the vendor's files: --firmware-archive DIR");
}

TEST_CASE("without any folder no version is available, and the working directory is not read") {
    const Bundle bundle({}, {});
    FirmwareArchive archive(bundle);
    const auto problems = archive.problems(productWithID(kProductVK14), kKey);
    REQUIRE(problems.size() == 1);
    CHECK(messageOf(problems[0]) == "There is no folder with firmware files");
    CHECK(archive.available(*productWithID(kProductVK14), kKey).state == AvailableFirmware::State::missing);
}

TEST_CASE("the remedy for the installed archive is to reinstall the program") {
    const TemporaryFolder resources;
    const Bundle bundle(resources.path, resources / "firmware");
    FirmwareArchive archive(bundle);
    const auto problems = archive.problems(productWithID(kProductVK14), kKey);
    REQUIRE(problems.size() == 1);
    CHECK(remedyOf(problems[0]) == "It came with this program: install the program again.");
}

TEST_CASE("the problem of a model without a row is that it has no files") {
    Shelf shelf;
    const auto problems = shelf.archive.problems(nullptr, kKey);
    REQUIRE(problems.size() == 1);
    CHECK(problems[0].kind == Kind::noFilesForModel);
    CHECK(describeProblem(problems[0]) == "There are no firmware files for this model.");
}

TEST_CASE("a displayed command can be copied, whatever the folder is called") {
    const TemporaryFolder folder;
    const auto place = folder / "it's here";
    std::filesystem::create_directory(place);
    const Bundle bundle({}, place);
    FirmwareArchive archive(bundle);
    const auto problems = archive.problems(productWithID(kProductVK14), kKey);
    REQUIRE(problems.size() == 4); // the digest file and three files
    CHECK(remedyOf(problems[0]).ends_with("zulctl archive digest '" + folder.path.string() + "/it'\\''s here'"));
}
