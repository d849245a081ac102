// The descriptors of the printer's interfaces, in the format for FunctionFS's endpoint 0. Any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <cstdint>

namespace zul {

// Bulk packet sizes in bytes at full and high speed.
inline constexpr std::uint16_t kFullSpeedPacketSize = 64;
inline constexpr std::uint16_t kHighSpeedPacketSize = 512;

/// Descriptors for this number of bi-directional printer interfaces, each with a bulk OUT and a bulk IN endpoint, for
/// full and high speed.
Data functionDescriptors(int interfaces);
/// The interfaces' strings: none, but FunctionFS requires the block.
Data functionStrings();

} // namespace zul
