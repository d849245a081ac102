// The fixed data of each model.
#include "archive/ProductTable.h"

#include <doctest/doctest.h>
#include <map>
#include <vector>

using namespace zul;

TEST_CASE("every model has its row of files") {
    const std::map<std::uint16_t, std::vector<std::string_view>> rows = {
        {3, {"VK14 01.61.fw", "VK14_300_0161.cwd", "VK14_600_0161.cwd"}},
        {4, {"VK18 01.30.fw", "VK18_300_0130.cwd", "VK18_600_0130.cwd"}},
        {5, {"VK-RZ7 02.06.fw", "VK-RZ7_300_0201.cwd", "VK-RZ7_600_0100.cwd"}},
        {8, {"VK18DUP 1.40PRN.fw", "VK18_300_0130.cwd", "VK18_600_0130.cwd"}},
        {0x8B01, {"VK26 01.52.fw", "VK26_300_0111.cwd", "VK26_600_0111.cwd", "VK26_610_0111.cwd"}},
        {0x9001,
         {"VK28 01.05.fw", "VK28_SD_300_0101.cwd", "VK28_PP_300_0101.cwd", "VK28_SD_600_0101.cwd",
          "VK28_PP_600_0101.cwd", "VK28_SD_610_0101.cwd", "VK28_PP_610_0101.cwd", "VK28_SD_620_0101.cwd",
          "VK28_PP_620_0101.cwd"}}};
    CHECK(allProducts().size() == rows.size());
    for (const auto& [id, files] : rows) {
        const Product* product = productWithID(id);
        REQUIRE(product);
        CHECK(std::vector<std::string_view>(product->files.begin(), product->files.end()) == files);
    }
    CHECK(productWithID(6) == nullptr);
}
