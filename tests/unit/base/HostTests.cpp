// Host information: of a host with known answers, and of this machine.
#include "holven_Base/HOLVEN_Base.h"
#include "holven_Base/HOLVEN_NSObjectAdditions.h"
#include "holven_Base/HostProbe.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

#include <doctest/doctest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace zul;

namespace {

// Replaces this machine by a host with known answers.
struct HostLab {
    HostLab() {
        probe.pageSize = [] { return std::optional<std::uint64_t>(16384); };
        probe.vmStatistics = [] { return std::vector<std::uint32_t>{1000, 1, 2, 3}; };
        probe.model = [] { return std::optional<std::string>("Kiosk 7"); };
        probe.machine = [] { return std::optional<std::string>("x86_64"); };
        probe.operatingSystemVersion = [] { return std::string("12.5"); };
        probe.foundationVersion = [] { return 72.1; };
        probe.physicalMemory = [] { return std::uint64_t{8} << 30; };
        probe.activeProcessorCount = [] { return 4UL; };
        probe.byteOrder = [] { return HostByteOrder::littleEndian; };
        probe.processName = [] { return std::string("lab"); };
        probe.executablePath = [] { return std::optional<std::string>("/opt/lab"); };
        probe.environment = [](const char*) { return std::optional<std::string>(); };
        use();
    }
    ~HostLab() { HostProbe::setCurrent(HostProbe::system()); }
    void use() { HostProbe::setCurrent(probe); }
    void setTemporaryFolder(const std::string& path) {
        probe.environment = [path](const char* name) {
            return std::string(name) == "TMPDIR" ? std::optional(path) : std::nullopt;
        };
        use();
    }
    HostProbe probe;
};

int openDescriptors() {
    int count = 0;
    for (int descriptor = 0; descriptor < 256; ++descriptor) count += ::fcntl(descriptor, F_GETFD) >= 0 ? 1 : 0;
    return count;
}

} // namespace

TEST_CASE("free memory is reported in pages, bytes and whole mebibytes") {
    HostLab lab;
    CHECK(HOLVEN_Base::vmStats() == HOLVEN_Base::VMStats{{"freePages", 1000}, {"freeBytes", 16384000}, {"freeMB", 15}});
}

TEST_CASE("the page size of a host that refuses the query is 4096 bytes") {
    HostLab lab;
    lab.probe.pageSize = [] { return std::optional<std::uint64_t>(); };
    lab.use();
    CHECK(HOLVEN_Base::vmStats()->at("freeBytes") == 4096000);
}

TEST_CASE("free memory beyond four gibibytes is not truncated") {
    HostLab lab;
    lab.probe.vmStatistics = [] { return std::vector<std::uint32_t>{0xFFFFFFFF, 0, 0, 0}; };
    lab.use();
    CHECK(HOLVEN_Base::vmStats()->at("freeBytes") == 0xFFFFFFFFULL * 16384);
}

TEST_CASE("a host with fewer than four counters reports no free memory") {
    HostLab lab;
    lab.probe.vmStatistics = [] { return std::vector<std::uint32_t>{1000, 1, 2}; };
    lab.use();
    CHECK_FALSE(HOLVEN_Base::vmStats());
    CHECK(HOLVEN_Base::systemVersionInfo().find("(0MB free)") != std::string::npos);
}

TEST_CASE("model and architecture make one text, nullopt when the host refuses either") {
    HostLab lab;
    CHECK(HOLVEN_Base::hostModelAndArch() == "Kiosk 7 (x86_64)");
    lab.probe.model = [] { return std::optional<std::string>(); };
    lab.use();
    CHECK_FALSE(HOLVEN_Base::hostModelAndArch());
}

TEST_CASE("the description of the system has two lines of fixed shape") {
    HostLab lab;
    CHECK(HOLVEN_Base::systemVersionInfo() ==
          "Mac OS X 12.5 foundation (72.100);\n8192MB (15MB free); 4 CPU; LittleEndian (64-bit); Kiosk 7 (x86_64)");
}

TEST_CASE("the description names the byte order, and a missing model as null") {
    HostLab lab;
    lab.probe.byteOrder = [] { return HostByteOrder::bigEndian; };
    lab.probe.model = [] { return std::optional<std::string>(); };
    lab.use();
    CHECK(HOLVEN_Base::systemVersionInfo().ends_with("; BigEndian (64-bit); (null)"));
    lab.probe.byteOrder = [] { return HostByteOrder::unknown; };
    lab.use();
    CHECK(HOLVEN_Base::systemVersionInfo().ends_with("; Unknown (64-bit); (null)"));
}

TEST_CASE("the banner begins with 80 carets and a line feed and ends without one") {
    HostLab lab;
    CHECK(HOLVEN_Base::startupInfo() ==
          std::string(80, '^') + "\nlab starting up\n" + HOLVEN_Base::systemVersionInfo());
}

TEST_CASE("this machine reports its memory, processors and system") {
    HostProbe::setCurrent(HostProbe::system());
    const auto statistics = HOLVEN_Base::vmStats();
    REQUIRE(statistics);
    CHECK(statistics->at("freeBytes") >= statistics->at("freePages") * 4096);
    CHECK(HostProbe::current().physicalMemory() > statistics->at("freeBytes"));
    CHECK(HostProbe::current().activeProcessorCount() >= 1);
    CHECK(HOLVEN_Base::systemVersionInfo().find("Linux") != std::string::npos);
    CHECK(HostProbe::current().machine().has_value());
    CHECK(HostProbe::current().processName() == "unit_tests");
}

TEST_CASE("a temporary file without a requested descriptor leaves none open") {
    HostLab lab;
    const TemporaryFolder folder;
    lab.setTemporaryFolder(folder.path.string());
    const int before = openDescriptors();
    const std::string path = HOLVEN_Base::safeTempFile(nullptr);
    CHECK(openDescriptors() == before);
    CHECK(std::filesystem::path(path).parent_path() == folder.path);
    CHECK(std::filesystem::path(path).filename().string().size() == 16);
    struct stat info {};
    REQUIRE(::stat(path.c_str(), &info) == 0);
    CHECK((info.st_mode & 0777) == 0600);
}

TEST_CASE("a temporary file with a requested descriptor leaves exactly one open") {
    HostLab lab;
    const TemporaryFolder folder;
    lab.setTemporaryFolder(folder.path.string());
    const int before = openDescriptors();
    std::int32_t descriptor = -1;
    const std::string path = HOLVEN_Base::safeTempFile(&descriptor);
    CHECK(openDescriptors() == before + 1);
    CHECK(::write(descriptor, "x", 1) == 1);
    CHECK(TemporaryFolder::read(path) == "x");
    ::close(descriptor);
}

TEST_CASE("for a temporary file that cannot be created the template is returned, and the error is logged") {
    HostLab lab;
    LogCapture capture;
    const TemporaryFolder folder;
    const std::string absent = (folder / "absent").string();
    lab.setTemporaryFolder(absent);
    std::int32_t descriptor = 7;
    CHECK(HOLVEN_Base::safeTempFile(&descriptor) == absent + "/XXXXXXXXXXXXXXXX");
    CHECK(descriptor < 0);
    CHECK(capture.systemLog == std::vector<std::string>{"ERROR: failed to create temporary file " + absent +
                                                        "/XXXXXXXXXXXXXXXX (Error 2: No such file or directory)"});
}

TEST_CASE("without a folder in the environment, temporary files are created in the system's folder") {
    HostLab lab;
    const std::string path = HOLVEN_Base::safeTempFile(nullptr);
    CHECK(std::filesystem::path(path).parent_path() == "/tmp");
    std::filesystem::remove(path);
}

TEST_CASE("a standard folder is searched in the domains of the mask, the user's first, with its tilde") {
    CHECK(HOLVEN_Base::firstFoundDirectoryType(StandardFolder::caches, 0) == "~/.cache");
    CHECK(HOLVEN_Base::firstFoundDirectoryType(StandardFolder::caches, kAllDomains) == "~/.cache");
    CHECK(HOLVEN_Base::firstFoundDirectoryType(StandardFolder::caches, kSystemDomain) == "/var/cache");
    CHECK(HOLVEN_Base::firstFoundDirectoryType(StandardFolder::applicationSupport, kLocalDomain | kSystemDomain) ==
          "/usr/local/share");
    CHECK_FALSE(HOLVEN_Base::firstFoundDirectoryType(StandardFolder::desktop, kNetworkDomain));
}

TEST_CASE("the program's own path is logged three times and returned") {
    HostLab lab;
    LogCapture capture;
    CHECK(pathToSelf() == "/opt/lab");
    CHECK(capture.systemLog == std::vector<std::string>(3, "2010-04-23tavik pathToSelf will return: /opt/lab"));
}

TEST_CASE("a system that does not report the program's path yields no path and no log lines") {
    HostLab lab;
    LogCapture capture;
    lab.probe.executablePath = [] { return std::optional<std::string>(); };
    lab.use();
    CHECK_FALSE(pathToSelf());
    CHECK(capture.systemLog.empty());
}
