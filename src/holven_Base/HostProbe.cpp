// The host queries of this machine, read from sysfs, procfs and system calls.
// Called by HOLVEN_Base and by tests that replace the probe; any thread.
#include "holven_Base/HostProbe.h"

#include "platform/files/Files.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <sys/utsname.h>
#include <system_error>
#include <unicode/uversion.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace zul {

namespace {

// The value after "name:" or "name\t:" in a file of such lines.
std::optional<std::string> valueInFile(const char* path, const std::string& name, char separator) {
    std::istringstream file(textOfFile(path));
    for (std::string line; std::getline(file, line);) {
        const auto mark = line.find(separator);
        if (mark == std::string::npos || !line.starts_with(name)) continue;
        if (line.find_first_not_of(" \t", name.size()) != mark) continue; // only the prefix of a longer name
        const auto start = line.find_first_not_of(" \t\"", mark + 1);
        if (start == std::string::npos) return std::string{};
        return line.substr(start, line.find_last_not_of(" \t\"") + 1 - start);
    }
    return std::nullopt;
}

std::optional<std::string> firstLine(const char* path) {
    std::string line = firstLineOfFile(path);
    line.erase(std::ranges::find(line, '\0'), line.end()); // device tree strings end with NUL
    return line.empty() ? std::nullopt : std::optional(line);
}

std::optional<std::uint64_t> systemPageSize() {
    const long size = ::sysconf(_SC_PAGESIZE);
    return size > 0 ? std::optional(static_cast<std::uint64_t>(size)) : std::nullopt;
}

std::vector<std::uint32_t> memoryCounters() {
    const std::uint64_t page = systemPageSize().value_or(4096);
    std::vector<std::uint32_t> counters;
    // The free pages first; callers refuse a list that is not complete.
    for (const char* name : {"MemFree", "Active", "Inactive", "Unevictable"}) {
        const auto kibibytes = valueInFile("/proc/meminfo", name, ':');
        if (!kibibytes) break;
        counters.push_back(static_cast<std::uint32_t>(std::strtoull(kibibytes->c_str(), nullptr, 10) * 1024 / page));
    }
    return counters;
}

// DMI on computers, the device tree on boards, the processor's name on virtual machines without either.
std::optional<std::string> machineModel() {
    if (auto name = firstLine("/sys/class/dmi/id/product_name")) return name;
    if (auto name = firstLine("/proc/device-tree/model")) return name;
    return valueInFile("/proc/cpuinfo", "model name", ':');
}

std::optional<std::string> machineArchitecture() {
    utsname names{};
    if (::uname(&names) != 0) return std::nullopt;
    return std::string(names.machine);
}

std::string systemRelease() {
    utsname names{};
    const std::string kernel = ::uname(&names) == 0 ? std::string(names.sysname) + ' ' + names.release : "Linux";
    const auto distribution = valueInFile("/etc/os-release", "PRETTY_NAME", '=');
    return distribution ? *distribution + ", " + kernel : kernel;
}

std::uint64_t memoryBytes() {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    return pages > 0 ? static_cast<std::uint64_t>(pages) * systemPageSize().value_or(4096) : 0;
}

unsigned long onlineProcessors() {
    const long count = ::sysconf(_SC_NPROCESSORS_ONLN);
    return count > 0 ? static_cast<unsigned long>(count) : 1;
}

HostByteOrder nativeByteOrder() {
    if constexpr (std::endian::native == std::endian::little) return HostByteOrder::littleEndian;
    if constexpr (std::endian::native == std::endian::big) return HostByteOrder::bigEndian;
    return HostByteOrder::unknown;
}

std::optional<std::string> ownPath() {
    std::error_code error;
    const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::nullopt : std::optional(path.string());
}

std::optional<std::string> environmentVariable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

HostProbe& probeInUse() {
    static HostProbe probe = HostProbe::system();
    return probe;
}

} // namespace

HostProbe HostProbe::system() {
    return {.pageSize = systemPageSize,
            .vmStatistics = memoryCounters,
            .model = machineModel,
            .machine = machineArchitecture,
            .operatingSystemVersion = systemRelease,
            .foundationVersion = [] { return std::strtod(U_ICU_VERSION, nullptr); },
            .physicalMemory = memoryBytes,
            .activeProcessorCount = onlineProcessors,
            .byteOrder = nativeByteOrder,
            .processName = [] { return std::string(program_invocation_short_name); },
            .executablePath = ownPath,
            .environment = environmentVariable};
}

const HostProbe& HostProbe::current() {
    return probeInUse();
}

void HostProbe::setCurrent(HostProbe probe) {
    probeInUse() = std::move(probe);
}

} // namespace zul
