// Whole files: read in one go, replaced in one step.
#include "platform/files/Files.h"
#include "support/TemporaryFolder.h"

#include <doctest/doctest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace zul;

namespace {

unsigned modeOf(const std::filesystem::path& file) {
    struct stat entry {};
    REQUIRE(::stat(file.c_str(), &entry) == 0);
    return entry.st_mode & 07777U;
}

std::size_t filesIn(const std::filesystem::path& folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

} // namespace

TEST_CASE("the contents of a regular file are its bytes, and anything else has none") {
    const TemporaryFolder folder;
    CHECK(contentsOfFile(folder.write("f", std::string("a\0\xFF", 3))) == Data{'a', 0, 0xFF});
    CHECK(contentsOfFile(folder.write("empty", "")) == Data{});
    CHECK_FALSE(contentsOfFile(folder / "absent"));
    CHECK_FALSE(contentsOfFile(folder.path));
    REQUIRE(::mkfifo((folder / "pipe").c_str(), 0600) == 0);
    CHECK_FALSE(contentsOfFile(folder / "pipe"));
}

TEST_CASE("a file of the kernel is read whole although its reported size is 0") {
    const std::string status = textOfFile("/proc/self/status");
    CHECK(status.find("Pid:\t" + std::to_string(::getpid()) + '\n') != std::string::npos);
    CHECK(status.ends_with('\n'));
}

TEST_CASE("the first line of a file ends before its line end, and a missing file has none") {
    const TemporaryFolder folder;
    CHECK(firstLineOfFile(folder.write("two", "one\ntwo\n")) == "one");
    CHECK(firstLineOfFile(folder.write("open", "no end")) == "no end");
    CHECK(firstLineOfFile(folder.write("empty", "")).empty());
    CHECK(firstLineOfFile(folder / "absent").empty());
    CHECK(textOfFile(folder / "absent").empty());
}

TEST_CASE("a replaced file has the new contents, another inode, and no other file is left") {
    const TemporaryFolder folder;
    const auto file = folder.write("f", "old and longer");
    const int before = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    CHECK_FALSE(replaceFile(file, "new", FileAccess::everyone));
    CHECK(TemporaryFolder::read(file) == "new");
    char old[32] = {};
    CHECK(::read(before, old, sizeof old) == 14); // a process that has it open still reads the old contents
    ::close(before);
    CHECK(filesIn(folder.path) == 1);
}

TEST_CASE("a replaced file is readable by its owner only, or as the process's umask allows") {
    const TemporaryFolder folder;
    const auto mask = ::umask(027);
    CHECK_FALSE(replaceFile(folder / "own", "x", FileAccess::owner));
    CHECK_FALSE(replaceFile(folder / "all", "x", FileAccess::everyone));
    ::umask(mask);
    CHECK(modeOf(folder / "own") == 0600);
    CHECK(modeOf(folder / "all") == 0640);
}

TEST_CASE("a file that cannot be replaced keeps its contents, and no other file remains") {
    const TemporaryFolder folder;
    CHECK(replaceFile(folder / "missing/f", "x", FileAccess::owner) == std::errc::no_such_file_or_directory);
    std::filesystem::create_directory(folder / "d");
    folder.write("d/kept", "old");
    CHECK(replaceFile(folder / "d", "x", FileAccess::owner) == std::errc::is_a_directory);
    CHECK(TemporaryFolder::read(folder / "d/kept") == "old");
    CHECK(filesIn(folder.path) == 1);
}

TEST_CASE("a leftover file of a killed process with the same number does not prevent a replacement") {
    const TemporaryFolder folder;
    const auto left = folder.write("f." + std::to_string(::getpid()) + "-1", "left");
    CHECK_FALSE(replaceFile(folder / "f", "new", FileAccess::owner));
    CHECK(TemporaryFolder::read(folder / "f") == "new");
    CHECK(TemporaryFolder::read(left) == "left");
}

TEST_CASE("a used name gets a number, and a dangling link uses its name, too") {
    const TemporaryFolder folder;
    CHECK(freePathLike(folder / "f") == folder / "f");
    folder.write("f", "");
    std::filesystem::create_symlink("nowhere", folder / "f-2");
    CHECK(freePathLike(folder / "f") == folder / "f-3");
}
