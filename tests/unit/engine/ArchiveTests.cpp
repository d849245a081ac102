// The archive: files, digests, versions.
#include "PrinterBench.h"

#include "archive/FirmwareDigests.h"
#include "archive/ProductTable.h"

using namespace zul;
using namespace zul::test;

namespace {

// Fills the archive with small files of the product and their digests.
void fill(PrinterBench& bench, std::uint16_t product, const std::string& image = "S00600004844521B\n") {
    FirmwareDigests digests;
    for (const std::string_view name : productWithID(product)->files) {
        const std::string contents = name.ends_with(".fw") ? image : "table " + std::string(name);
        bench.archive.write(std::string(name), contents);
        digests.digests[std::string(name)] = *TBUSBPrinterZUL::digestOfBlob(dataFromText(contents));
    }
    REQUIRE(writeFirmwareDigests(bench.archive.path, digests));
}

} // namespace

TEST_CASE("every model has its picture") {
    const std::map<std::uint16_t, std::string> pictures = {{3, "ZUL_VK_Series"},   {4, "ZUL_VK_Series"},
                                                           {5, "ZUL_RZ_Series"},   {8, "ZUL_VK_Series"},
                                                           {0x8B01, "V26A_LSide"}, {0x9001, "VK28"}};
    for (const auto& [id, picture] : pictures) {
        PrinterBench bench;
        CHECK(bench.inlinePrinter(id)->image() == picture);
    }
}

TEST_CASE("a digest is the keyed hash of the contents with the class name, followed by two zeros") {
    PrinterBench bench;
    bench.inlinePrinter();
    // Created with: printf hello | openssl dgst -sha256 -hmac TBUSBPrinterZUL
    const auto digest = bench.printer->verifyBlob(dataFromText("hello"));
    REQUIRE(digest);
    CHECK(digest->size() == 66);
    CHECK(*digest == "92d0fc7c6cee98aef6bd50a6f5030750800d702f3df97c9a1c71d0450f3127ca"
                     "00");
    CHECK(bench.log.hasLogged("keyed on TBUSBPrinterZUL"));
    CHECK(bench.printer->verifyBlob({}) == std::nullopt);
    CHECK(TBUSBPrinterZUL::asciiHexForData({0x00, 0xAB, 0x0F}) == "00ab0f");
}

TEST_CASE("another product's class name yields other digests") {
    struct Other final : TBUSBPrinterZUL {
        using TBUSBPrinterZUL::TBUSBPrinterZUL;
        std::string className() const override { return "Other"; }
    };
    PrinterBench bench;
    const auto other = std::make_shared<Other>(bench.environment);
    CHECK(other->verifyBlob(dataFromText("hello")) != TBUSBPrinterZUL::digestOfBlob(dataFromText("hello")));
}

TEST_CASE("a whole archive is verified file by file, and the list, digests and results are stored") {
    PrinterBench bench;
    fill(bench, 3);
    bench.inlinePrinter();
    CHECK(bench.printer->verifyFirmwareArchive());
    const auto info = bench.printer->deviceInfoDict();
    CHECK(info->strings("firmwareFilenames") ==
          std::vector<std::string>{"VK14 01.61.fw", "VK14_300_0161.cwd", "VK14_600_0161.cwd"});
    CHECK(info->strings("firmwareFileHash")->size() == 3);
    CHECK(info->boolean("VK14 01.61.fw") == true);
    CHECK(info->boolean("VK14_600_0161.cwd") == true);
    CHECK(bench.log.hasLogged("switching on productID 0x3"));
}

TEST_CASE("a product without a row verifies no file and stores no result") {
    PrinterBench bench;
    bench.inlinePrinter(6);
    CHECK(bench.printer->verifyFirmwareArchive() == false);
    CHECK(bench.printer->deviceInfoDict()->contains("firmwareFilenames") == false);
    CHECK(bench.printer->newFirmwareVersion() == std::nullopt);
    CHECK(bench.printer->availableFirmwareVersion() == 0.0);
}

TEST_CASE("a mismatch of the fifth of nine files stops there with four good results") {
    PrinterBench bench;
    fill(bench, 0x9001);
    bench.archive.write("VK28_PP_600_0101.cwd", "damaged");
    bench.inlinePrinter(0x9001);
    CHECK(bench.printer->verifyFirmwareArchive() == false);
    const auto info = bench.printer->deviceInfoDict();
    for (const char* good : {"VK28 01.05.fw", "VK28_SD_300_0101.cwd", "VK28_PP_300_0101.cwd", "VK28_SD_600_0101.cwd"}) {
        CHECK(info->boolean(good) == true);
    }
    CHECK(info->boolean("VK28_PP_600_0101.cwd") == false);
    CHECK(info->contains("VK28_SD_610_0101.cwd") == false);
}

TEST_CASE("an empty file never matches, whatever the digest file says") {
    PrinterBench bench;
    bench.archive.write("VK14 01.61.fw", "");
    bench.archive.write("digests.json", R"({"VK14 01.61.fw": ""})");
    CHECK(bench.inlinePrinter()->verifyFirmwareArchive() == false);
}

TEST_CASE("an archive without any file is not verified, and its list of digests is empty") {
    PrinterBench bench;
    CHECK(bench.inlinePrinter()->verifyFirmwareArchive() == false);
    CHECK(bench.printer->deviceInfoDict()->strings("firmwareFileHash") == std::vector<std::string>{});
}

TEST_CASE("no file of an archive with a damaged digest file matches") {
    PrinterBench bench;
    fill(bench, 3);
    bench.archive.write("digests.json", "{ no json");
    CHECK(bench.inlinePrinter()->verifyFirmwareArchive() == false);
    CHECK(bench.log.has(" is damaged"));
}

TEST_CASE("without its firmware file an archive verifies by its tables, and there is no image") {
    PrinterBench bench;
    fill(bench, 3);
    std::filesystem::remove(bench.archive / "VK14 01.61.fw");
    CHECK(bench.inlinePrinter()->verifyFirmwareArchive());
    CHECK(bench.printer->firmwareBlob() == nullptr);
}

TEST_CASE("the image is padded, and one that is not S-record text is only logged") {
    PrinterBench bench;
    fill(bench, 3);
    bench.inlinePrinter();
    CHECK(bench.printer->firmwareBlob() == nullptr); // no list yet: it does not verify by itself
    CHECK(bench.printer->verifyFirmwareArchive());
    CHECK(bench.printer->firmwareBlob()->size() == 20);
    CHECK(bench.log.hasLogged("Bad firmware file! Verification failed!") == false);
    fill(bench, 3, "hello");
    CHECK(bench.printer->verifyFirmwareArchive());
    CHECK(bench.printer->firmwareBlob()->size() == 8);
    CHECK(bench.printer->firmwareBlob()->size() == 8);
    CHECK(bench.log.times("Bad firmware file! Verification failed!") == 2); // at each call, although checked once
}

TEST_CASE("the image is the verified one, even if its file has changed since") {
    PrinterBench bench;
    fill(bench, 3);
    bench.inlinePrinter();
    REQUIRE(bench.printer->verifyFirmwareArchive());
    const SharedData verified = bench.printer->firmwareBlob();
    bench.archive.write("VK14 01.61.fw", "hello");
    CHECK(bench.printer->firmwareBlob() == verified);
    CHECK_FALSE(bench.printer->verifyFirmwareArchive());
    std::filesystem::remove(bench.archive / "VK14 01.61.fw");
    CHECK(bench.printer->firmwareBlob() == verified);
    CHECK(bench.printer->verifyFirmwareArchive()); // by its tables; now it is known that there is no image
    CHECK(bench.printer->firmwareBlob() == nullptr);
}

TEST_CASE("each check writes its log lines and results, also for files that are already known") {
    PrinterBench bench;
    fill(bench, 3);
    bench.inlinePrinter();
    CHECK(bench.printer->verifyFirmwareArchive());
    CHECK(bench.log.times("keyed on TBUSBPrinterZUL") == 3);
    bench.printer->deviceInfoDict()->remove("VK14_300_0161.cwd");
    CHECK(bench.printer->verifyFirmwareArchive());
    CHECK(bench.log.times("keyed on TBUSBPrinterZUL") == 6);
    CHECK(bench.printer->deviceInfoDict()->boolean("VK14_300_0161.cwd") == true);
}

TEST_CASE("a printer reports the available version and the problems of its archive") {
    PrinterBench bench;
    fill(bench, 3);
    bench.archive.write("VK14_300_0161.cwd", "damaged");
    bench.inlinePrinter();
    CHECK(bench.printer->availableFirmware()->isReady());
    CHECK(bench.printer->archiveProblems().size() == 1);
    PrinterBench other;
    other.inlinePrinter(6);
    CHECK_FALSE(other.printer->availableFirmware().has_value());
    CHECK(other.printer->archiveProblems().front().kind == ArchiveProblem::Kind::noFilesForModel);
}

TEST_CASE("versions are read from the last word of a name") {
    PrinterBench bench;
    bench.inlinePrinter(8);
    CHECK(bench.printer->newFirmwareVersion() == "VK18DUP 1.40PRN");
    CHECK(bench.printer->availableFirmwareVersion() == doctest::Approx(1.40));
    CHECK(bench.printer->installedFirmwareVersion() == 0.0);
    bench.printer->deviceInfoDict()->set("firmwareVersion", std::string("VK14 01.60"));
    CHECK(bench.printer->installedFirmwareVersion() == doctest::Approx(1.60));
    bench.printer->deviceInfoDict()->set("firmwareVersion", std::string("2.5"));
    CHECK(bench.printer->installedFirmwareVersion() == doctest::Approx(2.5));
}

TEST_CASE("the list is stored at once on the main queue, with a notice") {
    PrinterBench bench;
    bench.inlinePrinter();
    auto notices = std::make_shared<Notices>();
    bench.printer->addObserver(notices, "newFirmwareVersion", nullptr);
    bench.printer->setFilenames({"a.fw", "b.cwd", "c.cwd"});
    CHECK(bench.printer->deviceInfoDict()->strings("firmwareFilenames")->size() == 3);
    CHECK(notices->count["newFirmwareVersion"] == 1);
}

TEST_CASE("on a printer's queue the list is stored at once and announced from the main queue") {
    PrinterBench bench;
    bench.printerWithQueue();
    auto notices = std::make_shared<Notices>();
    bench.printer->addObserver(notices, "newFirmwareVersion", nullptr);
    bool storedAtOnce = false;
    bench.printer->performInlineOnCommandQueue([&] {
        bench.printer->setFilenames({"a.fw"});
        storedAtOnce = bench.printer->deviceInfoDict()->contains("firmwareFilenames");
    });
    bench.settle();
    CHECK(storedAtOnce);
    CHECK(notices->count["newFirmwareVersion"] == 1);
}

TEST_CASE("a list of two names has no tables, and from a longer one the first is removed") {
    PrinterBench bench;
    bench.inlinePrinter()->setFilenames({"a.fw", "b.cwd"});
    CHECK(bench.printer->colorTableNames().empty());
    bench.printer->setFilenames({"a.fw", "b.cwd", "c.cwd"});
    CHECK(bench.printer->colorTableNames() == std::vector<std::string>{"b.cwd", "c.cwd"});
}

TEST_CASE("a table is read unchanged, and its log line shows its name") {
    PrinterBench bench;
    bench.archive.write("x.cwd", "12345");
    bench.inlinePrinter();
    CHECK(*bench.printer->paddedColorDataForVersion("x.cwd") == dataFromText("12345"));
    CHECK(bench.log.hasLogged("got data of length 5 for file at path x.cwd"));
    CHECK(bench.printer->paddedColorDataForVersion("y.cwd") == nullptr);
    CHECK(bench.log.hasLogged("got data of length 0 for file at path y.cwd"));
}

TEST_CASE("a stored value can be read as a padded blob") {
    PrinterBench bench;
    bench.inlinePrinter()->deviceInfoDict()->set("k", std::string("hello"));
    CHECK(bench.printer->firmwareBlobForKey("k")->size() == 8);
    CHECK(bench.printer->firmwareBlobForKey("none") == std::nullopt);
}
