// Every time-out and limit of the real bus, each with its reason.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace zul::bus_limits {

using namespace std::chrono_literals;

/// How long a new device's node may stay closed to us before the device is announced all the same: udev makes the node
/// first and grants the rights a moment later, at worst after some slow rules of other packages. The same span serves a
/// device that is reported before the kernel has configured it. It serves the node of the kernel's printer driver, too,
/// which is made again each time the driver gets a printer.
inline constexpr std::chrono::milliseconds kAccessWait = 2000ms;
/// The same for a printer that is expected back from a restart of its update. It has to be opened to get its image or
/// its tables, and once it is announced without the right to open it, its update does not continue by itself.
inline constexpr std::chrono::milliseconds kAccessWaitInUpdate = 15'000ms;
/// How often the node is checked meanwhile: too short a delay for a person to notice, and rare against the cost of a
/// check.
inline constexpr std::chrono::milliseconds kAccessRetryInterval = 100ms;

/// The kernel takes control transfers of at most one page; more is refused before anything is sent.
inline constexpr std::uint16_t kControlTransferMax = 4096;
/// For requests that name no time-out: the library would wait without end.
inline constexpr std::chrono::milliseconds kDefaultTimeout = 1000ms;

/// One piece of a large write. All transfers in flight on the machine share 16 MB of kernel memory, which several
/// printers would exhaust with whole images; and progress is reported once per piece. A multiple of every packet size,
/// so the packets on the wire are those of one undivided transfer.
inline constexpr std::size_t kWritePiece = 256 * 1024;

/// While another program holds a printer: how often to look even if no close of its node was seen. A holder may
/// release the interface and keep the node open, which no file event reports.
inline constexpr std::chrono::milliseconds kHolderPollInterval = 5000ms;

/// After the last use of an interface the kernel's printer driver gets it back this much later. Long enough that the
/// questions of one round, which open and close the interface each, do not attach and detach the driver between them;
/// short enough that a print service finds the printer for its next job.
inline constexpr std::chrono::milliseconds kIdleBeforeReturn = 1000ms;

/// How long a printer's device ID is asked for before it is taken to be missing. A printer that has just restarted may
/// answer late, or refuse one request; without its ID it has no name and an update could not continue.
inline constexpr std::chrono::milliseconds kIdentityWait = 3000ms;
/// One such request. The printers answer in a few milliseconds when they answer at all.
inline constexpr std::chrono::milliseconds kIdentityTimeout = 100ms;
/// Between two such requests: a device that is busy starting gets time to finish.
inline constexpr std::chrono::milliseconds kIdentityPause = 250ms;
/// The start of the bus waits this long for the device IDs of what is attached, one request's time-out: printers that
/// answer are known when start returns, and one that does not delays no other.
inline constexpr std::chrono::milliseconds kStartWait = kIdentityTimeout;

/// A pipe is empty when no data has come for this long. A reply that is later than this is late by seconds.
inline constexpr std::chrono::milliseconds kResynchronizeQuiet = 100ms;
/// A device that sends for longer, or more, than this sends without end: the longest reply has some kilobytes.
inline constexpr std::chrono::milliseconds kResynchronizeTime = 2000ms;
inline constexpr std::size_t kResynchronizeBytes = 1024 * 1024;
/// One read of it: a few transfers for what a printer can have buffered.
inline constexpr std::uint32_t kResynchronizePiece = 16 * 1024;

/// Where neither udev nor the kernel reports arrivals: how often the devices on the bus are listed. A printer that
/// restarts is away for seconds.
inline constexpr std::chrono::milliseconds kRescanInterval = 2000ms;

} // namespace zul::bus_limits
