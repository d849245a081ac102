// Every time-out and limit of the real bus, each with its reason.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace zul::bus_limits {

using namespace std::chrono_literals;

/// How long a new device's node may stay closed to us before the device is announced all the same: udev makes the node
/// first and grants the rights a moment later, at worst after some slow rules of other packages. The same span serves a
/// device that is told of before the kernel has configured it.
inline constexpr std::chrono::milliseconds kAccessWait = 2000ms;
/// How often the node is looked at meanwhile: short against what a person notices, long against the cost of a look.
inline constexpr std::chrono::milliseconds kAccessRetryInterval = 100ms;

/// The kernel takes control transfers of at most one page; more is refused before anything is sent.
inline constexpr std::uint16_t kControlTransferMax = 4096;
/// For requests that name no time-out: the library would wait for ever.
inline constexpr std::chrono::milliseconds kDefaultTimeout = 1000ms;

/// One piece of a large write. All transfers in flight on the machine share 16 MB of kernel memory, which several
/// printers would exhaust with whole images; and progress is told once per piece. A multiple of every packet size, so
/// the packets on the wire are those of one undivided transfer.
inline constexpr std::size_t kWritePiece = 256 * 1024;

/// While another program holds a printer: how often to look even if no close of its node was seen. A holder may let
/// go of the interface and keep the node open, which no file event tells.
inline constexpr std::chrono::milliseconds kHolderPollInterval = 5000ms;

} // namespace zul::bus_limits
