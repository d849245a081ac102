// Print jobs through the kernel's printer driver: they are never interrupted.
#include "MockMachine.h"
#include "ExclusiveFile.h"
#include "support/LogCapture.h"
#include "support/SimulatedClock.h"

#include <filesystem>
#include <fstream>
#include <sys/stat.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

using Journal = std::vector<std::string>;
const Journal kTakenFromDriver{"claim 0 busy", "detach 0", "claim 0"};

int ownOpens(const std::string& file) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) == file) ++count;
    }
    return count;
}

// A printer that is bound to the kernel's driver; its node is a file that can be opened only once.
struct Driven {
    SimulatedClock clock;
    MockMachine bench{&clock};
    ExclusiveFile file;
    MockPrinter& printer = bench.plug();
    std::shared_ptr<IOUSBInterfaceInterface> handle;
    int hints = 0;

    explicit Driven(bool hasNode = true) {
        printer.bindKernelDriver("usblp");
        if (hasNode) bench.bindDriverNode(file.path());
        bench.start();
        handle = bench.handle();
    }
    void watch() {
        handle->watchHolder([this] { ++hints; });
    }
    void advance(Clock::Duration span) { clock.advance(bench.mainQueue, span); }
};

// The same with a node that may not be opened.
struct Hidden {
    TemporaryFolder folder;
    const std::filesystem::path node = folder.write("lp", "");
    LogCapture log;
    SimulatedClock clock;
    MockMachine bench{&clock};

    Hidden() { mode(0); }
    void mode(unsigned mode) { REQUIRE(::chmod(node.c_str(), mode) == 0); }
    MockPrinter& plug() {
        MockPrinter& printer = bench.plug();
        printer.bindKernelDriver("usblp");
        bench.bindDriverNode(node);
        return printer;
    }
};

} // namespace

TEST_CASE("a printer that prints through the kernel's driver yields exclusive access and keeps its driver") {
    Driven driven;
    driven.file.beginJob();
    CHECK(driven.handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    CHECK(driven.printer.journal() == Journal{"claim 0 busy"});
    CHECK(driven.handle->holder().kind == InterfaceHolder::Kind::printing);
}

TEST_CASE("a printer that prints is opened after the job has ended") {
    Driven driven;
    driven.file.beginJob();
    REQUIRE(driven.handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    driven.file.endJob();
    CHECK(driven.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
}

TEST_CASE("while the kernel's driver is detached its node is held open, so that no job can begin") {
    Driven driven;
    int opensWhileDetached = -1;
    driven.printer.whenDetached([&] { opensWhileDetached = ownOpens(driven.file.path()); });
    CHECK(driven.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(opensWhileDetached == 1);
    CHECK(ownOpens(driven.file.path()) == 0);
    CHECK(driven.printer.journal() == kTakenFromDriver);
}

TEST_CASE("a kernel's driver without a node has no job to protect") {
    Driven driven(/*hasNode=*/false);
    CHECK(driven.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(driven.printer.journal() == kTakenFromDriver);
}

TEST_CASE("a node of the kernel's driver that was removed meanwhile has no job to protect") {
    Driven driven;
    driven.bench.removeDriverNode();
    CHECK(driven.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    CHECK(driven.printer.journal() == kTakenFromDriver);
}

TEST_CASE("a silent claim of a printer that prints yields exclusive access") {
    Driven driven;
    driven.file.beginJob();
    CHECK(driven.handle->tryClaim() == kIOReturnExclusiveAccess);
    driven.file.endJob();
    CHECK(driven.handle->tryClaim() == kIOReturnSuccess);
    CHECK(driven.printer.kernelDriver() == "usblp");
}

TEST_CASE("the end of a print job is reported while the holder is watched") {
    Driven driven;
    driven.file.beginJob();
    REQUIRE(driven.handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    driven.watch();
    driven.file.endJob();
    CHECK(driven.bench.until([&] { return driven.hints > 0; }));
    CHECK(driven.handle->tryClaim() == kIOReturnSuccess);
}

TEST_CASE("checking for a print job is not taken for a job that ends") {
    Driven driven;
    driven.file.beginJob();
    REQUIRE(driven.handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    driven.watch();
    CHECK(driven.handle->tryClaim() == kIOReturnExclusiveAccess);
    driven.file.endJob();
    REQUIRE(driven.bench.until([&] { return driven.hints == 1; }));
    CHECK(driven.handle->tryClaim() == kIOReturnSuccess);
    CHECK(driven.handle->tryClaim() == kIOReturnSuccess);
    CHECK(driven.handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    driven.bench.settle();
    CHECK(driven.hints == 1);
    // The watch is still active for the next job.
    driven.file.beginJob();
    driven.file.endJob();
    CHECK(driven.bench.until([&] { return driven.hints == 2; }));
}

TEST_CASE("a kernel's driver that is bound during the wait is watched from the next check on") {
    Driven driven(/*hasNode=*/false);
    driven.printer.bindKernelDriver("");
    driven.printer.holdByOther(true);
    REQUIRE(driven.handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    driven.watch();
    driven.bench.bindDriverNode(driven.file.path());
    driven.advance(5s);
    REQUIRE(driven.hints == 1);
    driven.file.beginJob();
    driven.file.endJob();
    CHECK(driven.bench.until([&] { return driven.hints == 2; }));
}

TEST_CASE("a printer whose jobs cannot be seen is not used, and the log has the reason once") {
    Hidden hidden;
    MockPrinter& printer = hidden.plug();
    hidden.bench.start();
    const auto handle = hidden.bench.handle();
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnNotPrivileged);
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnNotPrivileged);
    CHECK(handle->tryClaim() == kIOReturnNotPrivileged);
    CHECK(printer.kernelDriver() == "usblp");
    CHECK(hidden.log.times("may not be opened, so it cannot be seen whether a job is printed") == 1);
}

TEST_CASE("a new printer is opened as soon as the permissions of its driver's node are set") {
    Hidden hidden;
    hidden.bench.start();
    MockPrinter& printer = hidden.plug();
    REQUIRE(hidden.bench.until([&] { return hidden.bench.events.size() == 1; }));
    const auto handle = hidden.bench.handle();
    SerialQueue queue("printer", hidden.clock);
    std::optional<IOReturn> code;
    queue.async([&] { code = handle->USBInterfaceOpenSeize(); });
    hidden.clock.advance(hidden.bench.mainQueue, 500ms);
    CHECK(!code);
    hidden.mode(0600);
    hidden.clock.advance(hidden.bench.mainQueue, 100ms);
    REQUIRE(code);
    CHECK(*code == kIOReturnSuccess);
    CHECK(printer.kernelDriver().empty());
    CHECK_FALSE(hidden.log.has("may not be opened"));
}

TEST_CASE("a printer that arrived two seconds ago is no longer waited for") {
    Hidden hidden;
    hidden.bench.start();
    hidden.plug();
    REQUIRE(hidden.bench.until([&] { return hidden.bench.events.size() == 1; }));
    const auto handle = hidden.bench.handle();
    hidden.clock.advance(hidden.bench.mainQueue, 2s);
    const auto before = hidden.clock.now();
    CHECK(handle->USBInterfaceOpenSeize() == kIOReturnNotPrivileged);
    CHECK(hidden.clock.now() == before);
}

TEST_CASE("after the kernel's driver was attached again the permissions of its new node are waited for") {
    Hidden hidden;
    hidden.mode(0600);
    MockPrinter& printer = hidden.plug();
    hidden.bench.start();
    const auto handle = hidden.bench.openHandle();
    REQUIRE(handle->USBInterfaceClose() == kIOReturnSuccess);
    hidden.clock.advance(hidden.bench.mainQueue, 1s);
    REQUIRE(printer.kernelDriver() == "usblp");
    hidden.mode(0); // the node is new
    SerialQueue queue("printer", hidden.clock);
    std::optional<IOReturn> code;
    queue.async([&] { code = handle->USBInterfaceOpenSeize(); });
    hidden.clock.advance(hidden.bench.mainQueue, 200ms);
    CHECK(!code);
    hidden.mode(0600);
    hidden.clock.advance(hidden.bench.mainQueue, 100ms);
    REQUIRE(code);
    CHECK(*code == kIOReturnSuccess);
}
