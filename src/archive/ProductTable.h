// The fixed data of each model, by USB product ID: name, picture, firmware archive row. Any thread.
#pragma once

#include <cstdint>
#include <set>
#include <span>
#include <string_view>

namespace zul {

/// One model. All texts live as long as the process.
struct Product {
    std::uint16_t productID;
    std::string_view model;
    std::string_view picture;
    std::span<const std::string_view> files; // firmware file first, then the colour tables
};

inline constexpr std::uint16_t kProductVK14 = 3;
inline constexpr std::uint16_t kProductVK18 = 4;
inline constexpr std::uint16_t kProductVKRZ7 = 5;
inline constexpr std::uint16_t kProductVK18DUP = 8;
inline constexpr std::uint16_t kProductVK26 = 0x8B01;
inline constexpr std::uint16_t kProductVK28 = 0x9001;

/// All models, in order of product ID.
std::span<const Product> allProducts();
/// The model with this product ID; null for an unknown one.
const Product* productWithID(std::uint16_t productID);

/// Vendor IDs of the printers and of their loaders. Used by the discovery and by the udev rule.
std::set<std::uint16_t> productVendorIDs();
/// The product IDs that are accepted without --admit-product.
std::set<std::uint16_t> acceptedProductIDs();

} // namespace zul
