// The ordered list of all events of embedded printers.
#include "unit/virtual_printer/BusBench.h"

#include "support/TemporaryFolder.h"

namespace zul {

namespace {

// "arrive", "command STATUS", "read timeout"
Texts linesOf(const VirtualJournal& journal) {
    Texts lines;
    for (const VirtualJournalEntry& entry : journal.entries()) {
        std::string line = entry.event;
        if (!entry.command.empty()) line += ' ' + entry.command;
        if (!entry.result.empty()) line += ' ' + entry.result;
        lines.push_back(line);
    }
    return lines;
}

} // namespace

TEST_CASE("the journal has all events of a printer in one order") {
    BusBench bench({"VK14,fault=stall@FVER"});
    {
        const auto handle = bench.openHandle();
        std::string text;
        BusBench::ask(*handle, "STATUS");
        CHECK(BusBench::write(*handle, frame("INFO  FVER")) == kIOReturnSuccess);
        CHECK(BusBench::read(*handle, text) == kIOUSBPipeStalled);
        CHECK(BusBench::read(*handle, text) == kIOUSBTransactionTimeout);
        CHECK(handle->USBInterfaceClose() == kIOReturnSuccess);
        bench.bus.setHeldByOther(0, true);
        CHECK(handle->USBInterfaceOpenSeize() == kIOReturnExclusiveAccess);
    }
    bench.bus.unplug(0);
    CHECK(linesOf(*bench.journal) == Texts{"arrive", "open", "command STATUS", "read", "read", "command INFO  FVER",
                                           "read stall", "read timeout", "close", "refuse", "leave"});
}

TEST_CASE("a failed write is in the journal with the accepted bytes") {
    BusBench bench({"VK14,fault=stall@TBL_CL,speed=100000"});
    const auto handle = bench.openHandle();
    bench.journal->clear();
    CHECK(BusBench::write(*handle, frame("TBL_CL")) == kIOUSBPipeStalled);
    CHECK(BusBench::write(*handle, frame("TBL_WTCTRLD_UPDATE_CW", Data(600000, 'x'))) == kIOUSBTransactionTimeout);
    CHECK(linesOf(*bench.journal) == Texts{"write stall", "write timeout"});
    CHECK(bench.journal->entries()[1].length == 262144);
}

TEST_CASE("a command is in the journal with its time, printer, length and hash") {
    BusBench bench({"VK14,serial=A", "VK14,serial=B"});
    bench.advance(std::chrono::milliseconds(1500));
    const auto handle = bench.openHandle(1);
    bench.journal->clear();
    CHECK(BusBench::write(*handle, frame("TBL_WTVersion", dataFromText("abc"))) == kIOReturnSuccess);
    const auto entries = bench.journal->entries();
    REQUIRE(entries.size() == 1);
    CHECK(entries[0].time == std::chrono::milliseconds(1500));
    CHECK(entries[0].printer == "B");
    CHECK(entries[0].command == "TBL_WTVersion");
    CHECK(entries[0].length == 3);
    CHECK(entries[0].sha256 == "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    CHECK(bench.journal->commands("B") == Texts{"TBL_WTVersion"});
    CHECK(bench.journal->commands("A").empty());
}

TEST_CASE("a journal file has one JSON object per line, written at once") {
    TemporaryFolder folder;
    SimulatedClock clock;
    VirtualJournal journal(clock);
    REQUIRE(journal.writeTo((folder / "journal").string()));
    VirtualJournalEntry entry;
    entry.printer = "7";
    entry.event = "arrive";
    journal.add(entry);
    CHECK(TemporaryFolder::read(folder / "journal") == "{\"event\":\"arrive\",\"printer\":\"7\",\"time\":0.0}\n");
    clock.sleepFor(std::chrono::milliseconds(250));
    entry.event = "command";
    entry.command = "TBL_WTVersion";
    entry.length = 3;
    entry.sha256 = "ab";
    journal.add(entry);
    entry = {};
    entry.printer = "7";
    entry.event = "read";
    entry.result = "timeout";
    journal.add(entry);
    CHECK(TemporaryFolder::read(folder / "journal") ==
          "{\"event\":\"arrive\",\"printer\":\"7\",\"time\":0.0}\n"
          "{\"command\":\"TBL_WTVersion\",\"event\":\"command\",\"length\":3,\"printer\":\"7\",\"sha256\":\"ab\","
          "\"time\":0.25}\n"
          "{\"event\":\"read\",\"length\":0,\"printer\":\"7\",\"result\":\"timeout\",\"time\":0.25}\n");
}

TEST_CASE("a command text that is not text does not prevent the journal from being written") {
    TemporaryFolder folder;
    SimulatedClock clock;
    VirtualJournal journal(clock);
    REQUIRE(journal.writeTo((folder / "journal").string()));
    VirtualJournalEntry entry;
    entry.event = "command";
    entry.command = "\xFF\xFE";
    journal.add(entry);
    const std::string line = TemporaryFolder::read(folder / "journal");
    CHECK(line.starts_with("{\"command\":"));
    CHECK(line.ends_with("}\n"));
}

TEST_CASE("a journal file that cannot be opened is reported") {
    SimulatedClock clock;
    VirtualJournal journal(clock);
    CHECK(!journal.writeTo("/nonexistent/journal"));
}

} // namespace zul
