// The queries for host information. Each is a separate function, so that tests can simulate a host that refuses one.
// The probe in use is process-wide, unlike the state of a run in Environment: the static functions of HOLVEN_Base and
// HOLVEN_Log that ask it have no environment, the log asks it before the first run begins, and the host is the same for
// all runs of a process.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace zul {

enum class HostByteOrder { unknown, littleEndian, bigEndian };

/// Each function must be set. Called on the thread that asks.
struct HostProbe {
    std::function<std::optional<std::uint64_t>()> pageSize; // bytes
    /// Memory counters in pages, the free ones first; empty if the host refuses.
    std::function<std::vector<std::uint32_t>()> vmStatistics;
    std::function<std::optional<std::string>()> model;   // of the machine
    std::function<std::optional<std::string>()> machine; // its architecture
    std::function<std::string()> operatingSystemVersion;
    std::function<double()> foundationVersion;     // of the library for texts and dates
    std::function<std::uint64_t()> physicalMemory; // bytes
    std::function<unsigned long()> activeProcessorCount;
    std::function<HostByteOrder()> byteOrder;                   // of the processor
    std::function<std::string()> processName;                   // of this process, without its folder
    std::function<std::optional<std::string>()> executablePath; // with symbolic links resolved; nullopt: not known
    std::function<std::optional<std::string>(const char* name)> environment; // a variable's value; nullopt: not set

    /// The queries of this machine.
    static HostProbe system();
    /// The probe in use: system() unless replaced. Replace it before other threads run.
    static const HostProbe& current();
    static void setCurrent(HostProbe probe);
};

} // namespace zul
