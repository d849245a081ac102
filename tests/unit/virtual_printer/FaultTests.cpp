// Simulated faults: when a fault happens, and its effect on the reply or the restart.
#include "unit/virtual_printer/Wire.h"

namespace zul {

using std::chrono::milliseconds;

namespace {

VirtualPrinter faulty(const std::string& faults, const std::string& model = "VK14") {
    return VirtualPrinter(described(model + "," + faults));
}

const Texts kIdle = {"00000006", "00000\r"};

} // namespace

TEST_CASE("a fault happens at the given occurrence of its command and only there") {
    VirtualPrinter printer = faulty("fault=silence@STATUS#2");
    CHECK(answers(printer, "STATUS") == kIdle);
    CHECK(body(printer, "INFO  FVER") == "VK14 01.60");
    CHECK(answers(printer, "STATUS").empty());
    CHECK(answers(printer, "STATUS") == kIdle);
}

TEST_CASE("a fault without a word applies to all commands") {
    VirtualPrinter printer = faulty("fault=silence#2");
    CHECK(answers(printer, "STATUS") == kIdle);
    CHECK(answers(printer, "INFO  FVER").empty());
    CHECK(answers(printer, "STATUS") == kIdle);
}

TEST_CASE("a query without a reply does not consume a status") {
    VirtualPrinter printer = faulty("status=00900:00000,fault=stall@FVER#1");
    CHECK(answers(printer, "INFO  FVER") == Texts{"(stall)"});
    CHECK(body(printer, "STATUS") == "00900");
}

TEST_CASE("a stall of a query stalls the reply") {
    VirtualPrinter printer = faulty("fault=stall@STATUS");
    const VirtualEffects effects = printer.receive(frame("STATUS"));
    CHECK(textsOf(effects) == Texts{"(stall)"});
    CHECK(!effects.stallsOut);
    CHECK(answers(printer, "STATUS") == kIdle);
}

TEST_CASE("a stall of a command without a reply stalls the command, which then has no effect") {
    VirtualPrinter printer = faulty("fault=stall@TBL_CL");
    CHECK(printer.receive(frame("TBL_CL")).stallsOut);
    CHECK(body(printer, "TBL_RDVersion") == "0160");
}

TEST_CASE("replies can be truncated, overstated, unterminated or invalid") {
    const auto statusWith = [](const std::string& fault) {
        VirtualPrinter printer = faulty("fault=" + fault + "@STATUS");
        return answers(printer, "STATUS");
    };
    CHECK(statusWith("short") == Texts{"00000006", "000"});
    CHECK(statusWith("long-header") == Texts{"00004097", "00000\r"});
    CHECK(statusWith("no-cr") == Texts{"00000005", "00000"});
    CHECK(statusWith("garbage") == Texts{"????????", "00000\r"});
}

TEST_CASE("a late reply has the configured delay") {
    VirtualPrinter printer = faulty("fault=late@STATUS#1:1500,fault=late@STATUS#2");
    VirtualEffects effects = printer.receive(frame("STATUS"));
    REQUIRE(effects.transfers.size() == 2);
    CHECK(effects.transfers[0].delay == milliseconds(1500));
    CHECK(effects.transfers[1].delay == milliseconds(1500));
    effects = printer.receive(frame("STATUS"));
    REQUIRE(effects.transfers.size() == 2);
    CHECK(effects.transfers[0].delay == milliseconds(7000));
}

TEST_CASE("a printer that is unplugged during a payload has not received its command") {
    std::vector<std::string> seen;
    VirtualPrinter printer(described("VK14,fault=unplug@CTRLD_UPDATE"),
                           [&](const VirtualCommand& command) { seen.push_back(command.text); });
    const Data bytes = frame("TBL_WTCTRLD_UPDATE_CW", Data(1000, 'x'));
    CHECK(!printer.receive({bytes.data(), 515}).departure);
    const VirtualEffects effects = printer.receive({bytes.data() + 515, bytes.size() - 515});
    REQUIRE(effects.departure);
    CHECK(effects.departure->after == milliseconds(0));
    CHECK(effects.departure->comesBack);
    CHECK(seen.empty());
    printer.attach();
    CHECK(body(printer, "STATUS") == "00000");
}

TEST_CASE("a printer is unplugged after the number of bytes of the fault") {
    VirtualPrinter printer = faulty("fault=unplug@CTRLD_UPDATE#1:100");
    const Data bytes = frame("TBL_WTCTRLD_UPDATE_CW", Data(1000, 'x'));
    CHECK(!printer.receive({bytes.data(), 99}).departure);
    CHECK(printer.receive({bytes.data() + 99, 1}).departure);
}

TEST_CASE("several faults of one command are combined") {
    VirtualPrinter printer = faulty("fault=unplug@CTRLD_UPDATE,fault=never-back@CTRLD_UPDATE");
    const VirtualEffects effects = printer.receive(frame("TBL_WTCTRLD_UPDATE_CW", Data(1000, 'x')));
    REQUIRE(effects.departure);
    CHECK(!effects.departure->comesBack);
}

TEST_CASE("a restart can have no end or end on another port") {
    VirtualPrinter gone = faulty("fault=never-back@REWRITE");
    VirtualEffects effects = gone.receive(frame("FW_UPDFLASH_REWRITE"));
    REQUIRE(effects.departure);
    CHECK(!effects.departure->comesBack);

    VirtualPrinter moved = faulty("fault=elsewhere@REWRITE");
    effects = moved.receive(frame("FW_UPDFLASH_REWRITE"));
    REQUIRE(effects.departure);
    CHECK(effects.departure->comesBack);
    CHECK(effects.departure->elsewhere);
}

TEST_CASE("a loader can refuse a valid image") {
    VirtualPrinter printer = faulty("mode=loader,fault=stay-in-loader@PROGRAM#1");
    CHECK(printer.receive(frame("FW_UPDFLASH_PROGRAM", image("VK14 01.61"))).departure);
    printer.attach();
    CHECK(printer.isLoader());
    printer.receive(frame("FW_UPDFLASH_PROGRAM", image("VK14 01.61")));
    printer.attach();
    CHECK(!printer.isLoader());
}

TEST_CASE("a printer can return from one restart without its device ID") {
    VirtualPrinter printer = faulty("fault=no-id@REWRITE");
    CHECK(printer.answersDeviceID());
    printer.receive(frame("FW_UPDFLASH_REWRITE"));
    CHECK(printer.answersDeviceID()); // it has not restarted yet
    printer.attach();
    CHECK_FALSE(printer.answersDeviceID());
    printer.receive(frame("FW_UPDFLASH_PROGRAM", image("VK14 01.61")));
    printer.attach();
    CHECK(printer.answersDeviceID());
    CHECK_FALSE(faulty("id1284=off").answersDeviceID());
}

TEST_CASE("another program holds the interface only at the given open") {
    VirtualPrinter printer = faulty("fault=holder#2:400,fault=holder#3");
    CHECK(!printer.holderAtOpen());
    CHECK(printer.holderAtOpen() == milliseconds(400));
    CHECK(answers(printer, "STATUS") == kIdle); // commands are not counted as opens
    CHECK(printer.holderAtOpen() == milliseconds(3000));
    CHECK(!printer.holderAtOpen());
}

} // namespace zul
