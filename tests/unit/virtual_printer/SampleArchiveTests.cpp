// The sample archive: complete, valid, and the same bytes wherever it is generated.
#include "unit/virtual_printer/Wire.h"

#include "archive/ProductTable.h"
#include "archive/SRecord.h"
#include "sample_archive/SampleFiles.h"
#include "virtual_printer/FirmwareImage.h"
#include "virtual_printer/VirtualJournal.h"

#include <map>
#include <set>

namespace zul {

namespace {

const std::vector<SampleFile>& files() {
    static const std::vector<SampleFile> made = sampleFiles();
    return made;
}

std::set<char> recordKinds(const Data& contents) {
    std::set<char> kinds;
    for (std::size_t at = 0; at + 1 < contents.size(); ++at) {
        if (contents[at] == 'S' && (at == 0 || contents[at - 1] == '\n'))
            kinds.insert(static_cast<char>(contents[at + 1]));
    }
    return kinds;
}

} // namespace

TEST_CASE("the sample archive has exactly the files that the products need") {
    std::set<std::string> needed;
    for (const Product& product : allProducts()) {
        for (const std::string_view file : product.files) needed.insert(std::string(file));
    }
    std::set<std::string> made;
    for (const SampleFile& file : files()) made.insert(file.name);
    CHECK(made == needed);
    CHECK(made.size() == files().size());
}

TEST_CASE("sample firmware is valid for the program and for the loader, and contains its file's version") {
    int count = 0;
    for (const SampleFile& file : files()) {
        if (!file.name.ends_with(".fw")) continue;
        ++count;
        CAPTURE(file.name);
        CHECK(verifySRecData(file.contents));
        CHECK(versionOfFirmwareImage(paddedData(file.contents)) == file.name.substr(0, file.name.size() - 3));
        CHECK(file.contents.size() >= 500 * 1000);
        CHECK(file.contents.size() <= 3 * 1000 * 1000);
    }
    CHECK(count == 6);
}

TEST_CASE("sample firmware has a header, data of one record type, a count and the matching end record") {
    std::set<char> all;
    for (const SampleFile& file : files()) {
        if (!file.name.ends_with(".fw")) continue;
        CAPTURE(file.name);
        const std::set<char> kinds = recordKinds(file.contents);
        CHECK(kinds.size() == 4);
        CHECK(kinds.contains('0'));
        CHECK((kinds.contains('5') || kinds.contains('6')));
        for (const char kind : {'1', '2', '3'}) {
            CHECK(kinds.contains(kind) == kinds.contains(static_cast<char>('1' + '9' - kind)));
        }
        all.insert(kinds.begin(), kinds.end());
    }
    CHECK(all == std::set<char>{'0', '1', '2', '3', '5', '6', '7', '8', '9'});
}

TEST_CASE("sample tables have tens of kilobytes and differ from one another") {
    std::set<Data> tables;
    int count = 0;
    for (const SampleFile& file : files()) {
        if (!file.name.ends_with(".cwd")) continue;
        ++count;
        CAPTURE(file.name);
        CHECK(file.contents.size() >= 20 * 1024);
        CHECK(file.contents.size() < 100 * 1024);
        tables.insert(file.contents);
    }
    CHECK(count == 17);
    CHECK(tables.size() == 17);
}

TEST_CASE("sample files are the same bytes every time and everywhere") {
    const std::vector<SampleFile> again = sampleFiles();
    REQUIRE(again.size() == files().size());
    for (std::size_t index = 0; index < again.size(); ++index) {
        CHECK(again[index].name == files()[index].name);
        CHECK(again[index].contents == files()[index].contents);
    }
    // From the first machine that generated them; a change here changes all digests.
    const std::map<std::string, std::string> known = {
        {"VK14 01.61.fw", "2f11e4a6f6c4803ac2aa6d6915115c935c1e3e8915d193324ec1b39a6e8a631c"},
        {"VK28_PP_620_0101.cwd", "f96d737d3acc30e3fa82d2b61c0736705b043702fc46845e99cc8b14ee05e62d"},
    };
    for (const SampleFile& file : files()) {
        const auto entry = known.find(file.name);
        if (entry != known.end()) CHECK(sha256Of(file.contents) == entry->second);
    }
}

TEST_CASE("a digest is a keyed hash in lower-case digits with two zeroes after it") {
    // Created with: printf abc | openssl dgst -sha256 -hmac TBUSBPrinterZUL
    CHECK(sampleDigest(dataFromText("abc")) == "501abc86e3974fb5670b607ecbe4c90ccfc903c75e94521e7299b998284827ca00");
}

} // namespace zul
