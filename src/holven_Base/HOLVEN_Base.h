// What the machine is that the program runs on, and two conveniences with files. For diagnostics. Any thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace zul {

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
    /// The machine and its system in two lines.
    static std::string systemVersionInfo();
    /// A banner for the start of a log, without a line end.
    static std::string startupInfo();

    /// A new empty file that only its owner may use, in $TMPDIR or the system's temporary folder. descriptor receives
    /// it open, for the caller to close; null: it is closed here. On failure the answer is the unfilled template and
    /// descriptor receives a negative number.
    static std::string safeTempFile(std::int32_t* descriptor);

    /// firstFoundDirectoryType:inDomain:  The first standard folder of the kind, with "~" for the user's home; nothing
    /// when the domains have none. The folder need not exist.
    static std::optional<std::string> firstFoundDirectoryType(StandardFolder kind, unsigned domainMask);
};

} // namespace zul
