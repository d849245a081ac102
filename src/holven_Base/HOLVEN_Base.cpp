// Host information, temporary files and standard folders.
// Called by "zulctl hostinfo" and at the start of a log; any thread.
#include "holven_Base/HOLVEN_Base.h"

#include "holven_Base/HOLVEN_NSStringAdditions.h"
#include "holven_Base/HostProbe.h"
#include "platform/foundation/Format.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace zul {

namespace {

constexpr std::uint64_t kUsualPageSize = 4096;
constexpr std::size_t kLeastCounters = 4; // fewer counters than this are not reliable
constexpr std::size_t kLeastNameBuffer = 16;

std::optional<std::string> hostText(const std::string& text, std::size_t maxLength) {
    return stringWithCString(text.c_str(), maxLength, StringEncoding::utf8);
}

struct FolderRow {
    StandardFolder kind;
    unsigned domain;
    const char* path;
};

// In search order: the user's folders first.
constexpr auto kFolders = std::to_array<FolderRow>({
    {StandardFolder::application, kUserDomain, "~/.local/share/applications"},
    {StandardFolder::application, kLocalDomain, "/usr/local/share/applications"},
    {StandardFolder::application, kSystemDomain, "/usr/share/applications"},
    {StandardFolder::library, kUserDomain, "~/.local/lib"},
    {StandardFolder::library, kLocalDomain, "/usr/local/lib"},
    {StandardFolder::library, kSystemDomain, "/usr/lib"},
    {StandardFolder::user, kLocalDomain, "/home"},
    {StandardFolder::documentation, kUserDomain, "~/.local/share/doc"},
    {StandardFolder::documentation, kLocalDomain, "/usr/local/share/doc"},
    {StandardFolder::documentation, kSystemDomain, "/usr/share/doc"},
    {StandardFolder::document, kUserDomain, "~/Documents"},
    {StandardFolder::desktop, kUserDomain, "~/Desktop"},
    {StandardFolder::caches, kUserDomain, "~/.cache"},
    {StandardFolder::caches, kSystemDomain, "/var/cache"},
    {StandardFolder::applicationSupport, kUserDomain, "~/.local/share"},
    {StandardFolder::applicationSupport, kLocalDomain, "/usr/local/share"},
    {StandardFolder::applicationSupport, kSystemDomain, "/usr/share"},
    {StandardFolder::downloads, kUserDomain, "~/Downloads"},
    {StandardFolder::pictures, kUserDomain, "~/Pictures"},
});

const char* byteOrderName(HostByteOrder order) {
    switch (order) {
    case HostByteOrder::littleEndian:
        return "LittleEndian";
    case HostByteOrder::bigEndian:
        return "BigEndian";
    case HostByteOrder::unknown:
        break;
    }
    return "Unknown";
}

} // namespace

std::optional<HOLVEN_Base::VMStats> HOLVEN_Base::vmStats() {
    const HostProbe& host = HostProbe::current();
    const std::uint64_t pageSize = host.pageSize().value_or(kUsualPageSize);
    const std::vector<std::uint32_t> counters = host.vmStatistics();
    if (counters.size() < kLeastCounters) return std::nullopt;
    const std::uint64_t freeBytes = counters.front() * pageSize;
    return VMStats{{"freePages", counters.front()}, {"freeBytes", freeBytes}, {"freeMB", freeBytes >> 20}};
}

std::optional<std::string> HOLVEN_Base::hostModelAndArch() {
    const HostProbe& host = HostProbe::current();
    const auto model = host.model();
    const auto machine = host.machine();
    if (!model || !machine) return std::nullopt;
    const auto modelText = hostText(*model, model->size());
    // Both names share one buffer of the model's length, so the machine name is cut to that, or to 16 bytes.
    const auto machineText = hostText(*machine, std::max(model->size(), kLeastNameBuffer));
    if (!modelText) return std::nullopt;
    return *modelText + formatted(" (%s)", textOrNull(machineText));
}

std::string HOLVEN_Base::systemVersionInfo() {
    const HostProbe& host = HostProbe::current();
    const auto statistics = vmStats();
    const auto freeMB = static_cast<long>(statistics ? statistics->at("freeMB") : 0);
    const long bits = 64; // only 64-bit builds exist
    // The wording is fixed, including the system's name at the front, because scripts and support search for it.
    return formatted("Mac OS X %s foundation (%.3f);\n%lluMB (%ldMB free); %lu CPU; %s (%ld-bit); %s",
                     host.operatingSystemVersion(), host.foundationVersion(), host.physicalMemory() >> 20, freeMB,
                     host.activeProcessorCount(), byteOrderName(host.byteOrder()), bits,
                     textOrNull(hostModelAndArch()));
}

std::string HOLVEN_Base::startupInfo() {
    return std::string(80, '^') +
           formatted("\n%s starting up\n%s", HostProbe::current().processName(), systemVersionInfo());
}

std::string HOLVEN_Base::safeTempFile(std::int32_t* descriptor) {
    const auto named = HostProbe::current().environment("TMPDIR");
    // An empty name would select the working directory.
    const std::filesystem::path folder = named && !named->empty() ? *named : "/tmp";
    const std::string unfilled = (folder / "XXXXXXXXXXXXXXXX").string();
    std::string path = unfilled;
    // Makes the file, so that no other process can take the name first.
    const int file = ::mkostemp(path.data(), O_CLOEXEC);
    if (file < 0) {
        const int error = errno;
        logText("ERROR: failed to create temporary file %s (Error %d: %s)", unfilled, error,
                std::generic_category().message(error));
        if (descriptor != nullptr) *descriptor = file;
        return unfilled;
    }
    if (descriptor != nullptr) {
        *descriptor = file;
    } else {
        ::close(file);
    }
    return hostText(path, unfilled.size()).value_or(path);
}

std::optional<std::string> HOLVEN_Base::firstFoundDirectoryType(StandardFolder kind, unsigned domainMask) {
    // No bit means every domain, as callers without a preference pass 0.
    const unsigned domains = domainMask == 0 ? kAllDomains : domainMask;
    const auto found = std::ranges::find_if(
        kFolders, [&](const FolderRow& row) { return row.kind == kind && (row.domain & domains) != 0; });
    return found == kFolders.end() ? std::nullopt : std::optional<std::string>(found->path);
}

} // namespace zul
