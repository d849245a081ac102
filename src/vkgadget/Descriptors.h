// The descriptors of the printer's interfaces, as bytes that are written to FunctionFS's endpoint 0. Any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <cstdint>

namespace zul {

// Packet sizes that the two speeds prescribe for bulk endpoints.
inline constexpr std::uint16_t kFullSpeedPacketSize = 64;
inline constexpr std::uint16_t kHighSpeedPacketSize = 512;

/// So many bi-directional printer interfaces, each with a bulk OUT and a bulk IN endpoint, for full and for high speed.
Data functionDescriptors(int interfaces);
/// The interfaces' texts, in English; there are none, but FunctionFS asks for the block.
Data functionStrings();

} // namespace zul
