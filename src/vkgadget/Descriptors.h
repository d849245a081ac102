// The descriptors of the printer's one interface, as bytes that are written to FunctionFS's endpoint 0. Any thread.
#pragma once

#include "platform/foundation/Data.h"

#include <cstdint>

namespace zul {

// Packet sizes that the two speeds prescribe for bulk endpoints.
inline constexpr std::uint16_t kFullSpeedPacketSize = 64;
inline constexpr std::uint16_t kHighSpeedPacketSize = 512;

/// One bi-directional printer interface with a bulk OUT and a bulk IN endpoint, for full and for high speed.
Data functionDescriptors();
/// The interface's text, in English; it has none, but FunctionFS asks for the block.
Data functionStrings();

} // namespace zul
