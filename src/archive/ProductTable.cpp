// The models and their archive rows, one row per model.
// Constant; used by discovery, archive and update on any thread.
#include "archive/ProductTable.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <set>
#include <span>
#include <string_view>

namespace zul {

namespace {

using Name = std::string_view;

constexpr auto kVK14Files = std::to_array<Name>({"VK14 01.61.fw", "VK14_300_0161.cwd", "VK14_600_0161.cwd"});
constexpr auto kVK18Files = std::to_array<Name>({"VK18 01.30.fw", "VK18_300_0130.cwd", "VK18_600_0130.cwd"});
constexpr auto kVKRZ7Files = std::to_array<Name>({"VK-RZ7 02.06.fw", "VK-RZ7_300_0201.cwd", "VK-RZ7_600_0100.cwd"});
// The duplex model uses the colour tables of the VK18; only its firmware is different.
constexpr auto kVK18DUPFiles = std::to_array<Name>({"VK18DUP 1.40PRN.fw", "VK18_300_0130.cwd", "VK18_600_0130.cwd"});
constexpr auto kVK26Files =
    std::to_array<Name>({"VK26 01.52.fw", "VK26_300_0111.cwd", "VK26_600_0111.cwd", "VK26_610_0111.cwd"});
constexpr auto kVK28Files = std::to_array<Name>(
    {"VK28 01.05.fw", "VK28_SD_300_0101.cwd", "VK28_PP_300_0101.cwd", "VK28_SD_600_0101.cwd", "VK28_PP_600_0101.cwd",
     "VK28_SD_610_0101.cwd", "VK28_PP_610_0101.cwd", "VK28_SD_620_0101.cwd", "VK28_PP_620_0101.cwd"});

constexpr auto kProducts = std::to_array<Product>({
    {kProductVK14, "VK14", "ZUL_VK_Series", kVK14Files},
    {kProductVK18, "VK18", "ZUL_VK_Series", kVK18Files},
    {kProductVKRZ7, "VK-RZ7", "ZUL_RZ_Series", kVKRZ7Files},
    {kProductVK18DUP, "VK18DUP", "ZUL_VK_Series", kVK18DUPFiles},
    {kProductVK26, "VK26", "V26A_LSide", kVK26Files},
    {kProductVK28, "VK28", "VK28", kVK28Files},
});
// The look-up halves the table.
static_assert(std::ranges::is_sorted(kProducts, {}, &Product::productID));

} // namespace

std::span<const Product> allProducts() {
    return kProducts;
}

const Product* productWithID(std::uint16_t productID) {
    const auto found = std::ranges::lower_bound(kProducts, productID, {}, &Product::productID);
    return found == kProducts.end() || found->productID != productID ? nullptr : &*found;
}

std::set<std::uint16_t> productVendorIDs() {
    return {0x2A71, 0x2B84};
}

// The rows of the other models are complete, but this build supports only the VK14.
std::set<std::uint16_t> acceptedProductIDs() {
    return {kProductVK14};
}

} // namespace zul
