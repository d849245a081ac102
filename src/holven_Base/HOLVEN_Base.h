// Information about the host, temporary files and standard folders. For diagnostics. Any thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace zul {

/// The kinds of folders that firstFoundDirectoryType() finds.
enum class StandardFolder {
    application,
    library,
    user,
    documentation,
    document,
    desktop,
    caches,
    applicationSupport,
    downloads,
    pictures,
};

/// Bits of a domain mask; 0 means all of them.
constexpr unsigned kUserDomain = 1;
constexpr unsigned kLocalDomain = 2;
constexpr unsigned kNetworkDomain = 4;
constexpr unsigned kSystemDomain = 8;
constexpr unsigned kAllDomains = 0xFFFF;

class HOLVEN_Base {
  public:
    using VMStats = std::map<std::string, std::uint64_t>;

    /// "freePages", "freeBytes", "freeMB" (whole mebibytes); nullopt if the host refuses.
    static std::optional<VMStats> vmStats();
    /// "model (architecture)"; nullopt if the host refuses.
    static std::optional<std::string> hostModelAndArch();
    /// Two lines about the machine and its operating system.
    static std::string systemVersionInfo();
    /// A banner for the start of a log, without a line end.
    static std::string startupInfo();

    /// Creates an empty file with owner-only access in $TMPDIR or the system's temporary folder, and returns its path.
    /// descriptor receives the open file, which the caller closes; if null, the file is closed here. On failure the
    /// unfilled template is returned and descriptor is negative.
    static std::string safeTempFile(std::int32_t* descriptor);

    /// firstFoundDirectoryType:inDomain:  The first standard folder of this kind in the given domains, with "~" for the
    /// user's home; nullopt if the domains have none. The folder need not exist.
    static std::optional<std::string> firstFoundDirectoryType(StandardFolder kind, unsigned domainMask);
};

} // namespace zul
