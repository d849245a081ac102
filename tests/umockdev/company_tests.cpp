// Other processes that use a printer: the holder of the interface, and reservations by another process of this product.
#include "MockMachine.h"
#include "ExclusiveFile.h"
#include "FakeReservations.h"
#include "support/SimulatedClock.h"

#include <filesystem>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Journal = std::vector<std::string>;
constexpr const char* kKey = "2A71000301200000"; // vendor, product, location of the bench's printer
constexpr const char* kNode = "/dev/bus/usb/001/004";

// Processes as listed in procfs.
struct Processes {
    TemporaryFolder folder;

    Processes() {
        std::filesystem::create_directory(folder / "net"); // where the bus searches for udevd
        std::filesystem::create_symlink("/proc/net/unix", folder / "net" / "unix");
    }
    void add(int pid, const std::string& name, const std::string& openFile) const {
        const auto process = folder / std::to_string(pid);
        std::filesystem::create_directories(process / "fd");
        folder.write(std::to_string(pid) + "/comm", name + "\n");
        std::filesystem::create_symlink("/dev/null", process / "fd" / "0");
        std::filesystem::create_symlink(openFile, process / "fd" / "7");
    }
};

// A printer among other processes and reservations.
struct Company {
    Processes processes;
    FakeReservations reservations;
    SimulatedClock clock;
    MockMachine bench;
    MockPrinter& printer = bench.plug();
    std::shared_ptr<IOUSBInterfaceInterface> handle = (bench.start(), bench.handle());
    int hints = 0;

    Company() : bench(&clock, options()) {}
    LibusbBusOptions options() {
        LibusbBusOptions options;
        options.reservations = &reservations;
        options.system.proc = processes.folder.path;
        return options;
    }
    void watch() {
        handle->watchHolder([this] { ++hints; });
    }
};

InterfaceHolder holder(InterfaceHolder::Kind kind, const std::string& program, int pid) {
    InterfaceHolder holder;
    holder.kind = kind;
    holder.program = program;
    holder.pid = pid;
    return holder;
}

} // namespace

TEST_CASE("the holder of an interface is the process that has the device open") {
    Company company;
    company.processes.add(300, "ipp-usb", kNode);
    company.printer.holdByOther(true);
    REQUIRE(company.handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    CHECK(company.handle->holder() == holder(InterfaceHolder::Kind::process, "ipp-usb", 300));
}

TEST_CASE("a holder that the system does not report is unknown") {
    Company company;
    company.processes.add(300, "cat", "/dev/bus/usb/001/005");
    company.printer.holdByOther(true);
    REQUIRE(company.handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    CHECK(company.handle->holder() == InterfaceHolder{});
}

TEST_CASE("the holder of a printing printer is the process that has the node of the kernel's driver open") {
    Company company;
    ExclusiveFile file;
    company.printer.bindKernelDriver("usblp");
    company.bench.bindDriverNode(file.path());
    company.processes.add(200, "zulctl", kNode);
    company.processes.add(300, "usb", "/dev/usb/lp0");
    file.beginJob();
    REQUIRE(company.handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    CHECK(company.handle->holder() == holder(InterfaceHolder::Kind::printing, "usb", 300));
}

TEST_CASE("a job of a process that cannot be examined is reported as printing without a process") {
    Company company;
    ExclusiveFile file;
    company.printer.bindKernelDriver("usblp");
    company.bench.bindDriverNode(file.path());
    file.beginJob();
    REQUIRE(company.handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    CHECK(company.handle->holder() == holder(InterfaceHolder::Kind::printing, "", 0));
}

TEST_CASE("a detached printer has no holder") {
    Company company;
    company.processes.add(300, "ipp-usb", kNode);
    company.bench.unplug();
    REQUIRE(company.bench.until([&] { return company.bench.events.size() == 3; }));
    CHECK(company.handle->holder() == InterfaceHolder{});
}

TEST_CASE("a printer reserved by another process of this product is refused without any system call") {
    Company company;
    company.processes.add(300, "ipp-usb", kNode);
    company.reservations.reserve(kKey);
    CHECK(company.handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    CHECK(company.handle->tryClaim() == kIOReturnExclusiveAccess);
    CHECK(company.printer.journal().empty());
    CHECK(company.handle->holder() == FakeReservations::holder());
}

TEST_CASE("a reservation of another printer does not apply to this one") {
    Company company;
    company.reservations.reserve("2A71000301300000");
    CHECK(company.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
}

TEST_CASE("an interface that this process has claimed remains usable despite another process's reservation") {
    Company company;
    REQUIRE(company.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    company.reservations.reserve(kKey);
    CHECK(company.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(company.handle->WritePipeTO(kPipeOut, "frame", 5, 1000, 1000) == kIOReturnSuccess);
}

TEST_CASE("the end of a reservation is reported while the holder is watched") {
    Company company;
    company.reservations.reserve(kKey);
    REQUIRE(company.handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    company.watch();
    company.bench.mainQueue.runPending();
    CHECK(company.hints == 0);
    company.reservations.release(kKey);
    company.bench.mainQueue.runPending();
    CHECK(company.hints == 1);
    CHECK(company.handle->tryClaim() == kIOReturnSuccess);
}

TEST_CASE("the end of a reservation is not reported after the watch has ended") {
    Company company;
    company.reservations.reserve(kKey);
    REQUIRE(company.handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    company.watch();
    company.handle->watchHolder(nullptr);
    company.reservations.release(kKey);
    company.bench.settle();
    CHECK(company.hints == 0);
}
