// Which process has a file open, searched in folders like those of the kernel.
#include "usb/libusb/ProcessSearch.h"

#include "support/TemporaryFolder.h"

#include <doctest/doctest.h>
#include <fcntl.h>
#include <filesystem>
#include <sys/wait.h>
#include <unistd.h>

using namespace zul;

namespace {

constexpr const char* kNode = "/dev/bus/usb/001/004";
using Kind = InterfaceHolder::Kind;

struct Processes {
    TemporaryFolder folder;
    SystemFolders folders;

    Processes() { folders.proc = folder.path; }
    void add(const std::string& pid, const std::string& name, const std::string& openFile) const {
        const auto process = folder / pid;
        std::filesystem::create_directories(process / "fd");
        folder.write(pid + "/comm", name + "\n");
        std::filesystem::create_symlink("/dev/null", process / "fd" / "0");
        std::filesystem::create_symlink(openFile, process / "fd" / "11");
    }
    std::vector<FoundProcess> find() const { return processesWithOpen(folders, kNode); }
};

} // namespace

TEST_CASE("the processes that have the file open are found with their ids") {
    Processes processes;
    processes.add("4000", "other", kNode);
    processes.add("300", "ipp-usb", kNode);
    processes.add("301", "cat", "/dev/bus/usb/001/005");
    CHECK(processes.find() == std::vector<FoundProcess>{{300, "ipp-usb"}, {4000, "other"}});
}

TEST_CASE("a path of which the file's is only a prefix is another file") {
    Processes processes;
    processes.add("300", "one", std::string(kNode) + "1");
    processes.add("301", "two", std::string(kNode) + " (deleted)");
    processes.add("302", "three", "/dev/bus/usb/001/00");
    CHECK(processes.find().empty());
}

TEST_CASE("entries that are not processes are skipped, and so is this process") {
    Processes processes;
    processes.add("self", "self", kNode);
    processes.add("12x", "odd", kNode);
    processes.add("0", "none", kNode);
    processes.add(std::to_string(::getpid()), "unit_tests", kNode);
    processes.folder.write("uptime", "1 1\n");
    CHECK(processes.find().empty());
}

TEST_CASE("a process that ends during the search, or belongs to another user, is skipped") {
    Processes processes;
    std::filesystem::create_directories(processes.folder / "300"); // without its open files
    processes.add("301", "cat", kNode);
    std::filesystem::remove(processes.folder / "301" / "comm");
    CHECK(processes.find() == std::vector<FoundProcess>{{301, ""}});
}

TEST_CASE("a system that lists no processes has none") {
    SystemFolders folders;
    folders.proc = "/nowhere";
    CHECK(processesWithOpen(folders, kNode).empty());
}

TEST_CASE("a process of this machine is found in the machine's own folder") {
    TemporaryFolder folder;
    const auto file = folder.write("held", "");
    int ready[2];
    REQUIRE(::pipe(ready) == 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const int held = ::open(file.c_str(), O_RDONLY);
        char byte = 0;
        ::close(ready[1]);
        if (held >= 0 && ::read(ready[0], &byte, 1) == 0) ::_exit(0); // until the test closes its end
        ::_exit(1);
    }
    REQUIRE(child > 0);
    ::close(ready[0]);
    std::vector<FoundProcess> found;
    while (found.empty() && ::waitpid(child, nullptr, WNOHANG) == 0) found = processesWithOpen({}, file);
    REQUIRE(found.size() == 1);
    CHECK(found.front().pid == child);
    CHECK(found.front().name == "unit_tests");
    ::close(ready[1]);
    ::waitpid(child, nullptr, 0);
}

TEST_CASE("the probable holder is another program before one of this product") {
    const auto holder = probableHolder({{200, "zulctl"}, {300, "zul-printer-uti"}, {400, "cups"}}, Kind::process);
    CHECK(holder.kind == Kind::process);
    CHECK(holder.program == "cups");
    CHECK(holder.pid == 400);
}

TEST_CASE("if only programs of this product have the device open, the first of them is the holder") {
    const auto holder = probableHolder({{200, "zulctl"}, {300, "zul-printer-uti"}}, Kind::printing);
    CHECK(holder.kind == Kind::printing);
    CHECK(holder.program == "zulctl");
    CHECK(holder.pid == 200);
}

TEST_CASE("if no process has the device open, the holder is unknown") {
    CHECK(probableHolder({}, Kind::printing) == InterfaceHolder{});
}
