// The folders of a user: their paths, and their creation.
#include "platform/files/Folders.h"
#include "support/TemporaryFolder.h"

#include <doctest/doctest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace zul;

namespace {

unsigned modeOf(const std::filesystem::path& folder) {
    struct stat entry {};
    REQUIRE(::stat(folder.c_str(), &entry) == 0);
    return entry.st_mode & 07777U;
}

} // namespace

TEST_CASE("settings are kept in the user's configuration folder, root's in root's") {
    CHECK(configFolder({.configHome = "/conf", .home = "/home/u"}) == "/conf/zul-printer-utility");
    CHECK(configFolder({.home = "/home/u"}) == "/home/u/.config/zul-printer-utility");
    CHECK(configFolder({.isRoot = true, .home = "/home/r"}) == "/home/r/.config/zul-printer-utility");
    CHECK(configFolder({.configHome = "conf", .home = "/home/u"}) == "/home/u/.config/zul-printer-utility");
    CHECK(configFolder({.configHome = "conf"}).empty());
}

TEST_CASE("state that is kept between runs is in the user's state folder") {
    CHECK(stateFolder({.stateHome = "/state", .home = "/home/u"}) == "/state/zul-printer-utility");
    CHECK(stateFolder({.home = "/home/u"}) == "/home/u/.local/state/zul-printer-utility");
}

TEST_CASE("a relative state folder is ignored, and without a home there is none") {
    CHECK(stateFolder({.stateHome = "state", .home = "/home/u"}) == "/home/u/.local/state/zul-printer-utility");
    CHECK(stateFolder({.stateHome = "state"}).empty());
}

TEST_CASE("root keeps its state in the system's folder, or where a variable names a folder of root's own") {
    CHECK(stateFolder({.isRoot = true, .home = "/root"}) == "/var/lib/zul-printer-utility");
    CHECK(stateFolder({.isRoot = true, .stateHome = "/usr/new/state"}) == "/usr/new/state/zul-printer-utility");
}

TEST_CASE("root does not use the state folder of another user") {
    const TemporaryFolder folder;
    if (::geteuid() == 0) REQUIRE(::chown(folder.path.c_str(), 65534, 65534) == 0);
    // If the test runs as another user than root, the folder belongs to that user anyway.
    CHECK(stateFolder({.isRoot = true, .stateHome = folder.path.string()}) == "/var/lib/zul-printer-utility");
    CHECK(stateFolder({.isRoot = true, .stateHome = (folder / "new").string()}) == "/var/lib/zul-printer-utility");
}

TEST_CASE("the state folder is created with its parents, closed to other users unless root creates it") {
    const TemporaryFolder folder;
    const auto before = ::umask(022);
    const auto state = folder / "a/b/zul-printer-utility";
    CHECK_FALSE(createStateFolder(state));
    const unsigned expected = ::geteuid() == 0 ? 0755 : 0700;
    CHECK(modeOf(state) == expected);
    CHECK(modeOf(folder / "a") == expected);
    CHECK_FALSE(createStateFolder(state)); // exists already
    ::umask(before);
}

TEST_CASE("a state folder that cannot be created is an error") {
    const TemporaryFolder folder;
    const auto file = folder.write("file", "");
    CHECK(createStateFolder(file / "state"));
    CHECK(createStateFolder(file) == std::errc::not_a_directory);
    CHECK(createStateFolder({}));
}
