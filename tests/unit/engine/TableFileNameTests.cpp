// What the names of colour-table files say about a table.
#include "protocol/TableFileName.h"

#include "archive/ProductTable.h"

#include <doctest/doctest.h>
#include <string>

using namespace zul;

TEST_CASE("a table's name has its number and its version, with the media where a model has two") {
    const auto table = parsedTableFileName("VK14_300_0161.cwd");
    REQUIRE(table);
    CHECK(table->number == "300");
    CHECK(table->version == "0161");
    CHECK_FALSE(table->isForPP);
    const auto other = parsedTableFileName("VK28_PP_600_0101.CWD"); // as it is sent to the printer
    REQUIRE(other);
    CHECK(other->number == "600");
    CHECK(other->version == "0101");
    CHECK(other->isForPP);
    CHECK_FALSE(parsedTableFileName("VK28_SD_600_0101.cwd")->isForPP);
}

TEST_CASE("a table's name may lack its extension, and its model may contain other characters") {
    const auto table = parsedTableFileName("VK-RZ7.2_PP_610_0201");
    REQUIRE(table);
    CHECK(table->number == "610");
    CHECK(table->version == "0201");
    CHECK(table->isForPP);
}

TEST_CASE("a name without a model, a number of three digits or a version is not a table's name") {
    for (const char* name :
         {"", "_", "VK14", "VK14_0161.cwd", "VK14_30_0161.cwd", "VK14_3000_0161.cwd", "VK14_3x0_0161.cwd",
          "300_0161.cwd", "_300_0161.cwd", "VK14_300_.cwd", "VK14_300_", "VK14_300_0161_1.cwd", "VK14 01.61.fw"}) {
        CAPTURE(name);
        CHECK(parsedTableFileName(name) == std::nullopt);
    }
}

TEST_CASE("the name of every table in the product table can be parsed, and no other file's name") {
    for (const Product& product : allProducts()) {
        for (const std::string_view file : product.files) {
            CAPTURE(std::string(file));
            CHECK(parsedTableFileName(file).has_value() == file.ends_with(".cwd"));
        }
    }
}
