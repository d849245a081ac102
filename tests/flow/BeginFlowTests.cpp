// From the operator's click to the first command: the queries, changes meanwhile, and the identity of the printer.
#include "SupervisedLab.h"

#include "archive/ProductTable.h"
#include "unit/update/ChildProcess.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace zul::test;
using namespace std::chrono_literals;

namespace {

using Equal = UpdateSupervisor::Equal;
using Results = std::vector<UpdateResult>;

// The queries of its arrival have ended without a status: the second STATUS is the repetition.
const std::string kNoStatusYet = "fault=silence@STATUS,fault=silence@STATUS#2";

bool isAskedFor(const Lab& lab, const char* command) {
    return std::ranges::count(lab.wire(), std::string(command)) > 0;
}

} // namespace

// ---- the printer's own status ---------------------------------------------------------------------------------------

TEST_CASE("a printer without a reported status is queried for it, and its update begins with the reply") {
    SupervisedLab lab;
    lab.startWithVK14(kNoStatusYet);
    lab.supervisor.begin(lab.printer(), Equal::install);
    CHECK(lab.operatorDesk.waiting() == 0);
    lab.rest(1s);
    CHECK(isAskedFor(lab, "STATUS"));
    CHECK(lab.operatorDesk.title() == "Attention:");
    CHECK(lab.update().isOpen());
}

TEST_CASE("an update stopped during the status query does not begin with the reply") {
    SupervisedLab lab;
    lab.startWithVK14(kNoStatusYet);
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.supervisor.requestStop();
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::stopped});
    CHECK(lab.operatorDesk.waiting() == 0);
    CHECK(lab.records().size() == 1);
}

TEST_CASE("a printer detached during the status query is reported as detached, not as unresponsive") {
    SupervisedLab lab;
    lab.startWithVK14(kNoStatusYet + ",fault=silence@STATUS#3");
    const auto printer = lab.printer();
    lab.supervisor.begin(printer, Equal::install);
    lab.advance(1s);
    lab.bus.unplug(0);
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::left});
    CHECK(lab.operatorDesk.waiting() == 0);
}

TEST_CASE("a printer held by another program during the status query is reported as busy, with that program") {
    SupervisedLab lab;
    lab.startWithVK14(kNoStatusYet);
    lab.bus.setHeldByOther(0, true);
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1min);
    CHECK(lab.result() == UpdateResult::busy);
    REQUIRE(lab.update().verdict.holder);
    CHECK(lab.update().verdict.holder->program == "another program");
    CHECK(lab.update().verdict.isUntouched());
    CHECK(lab.operatorDesk.waiting() == 0);
}

TEST_CASE("a printer without a device ID cannot be queried, and is reported as one that could not be opened") {
    SupervisedLab lab;
    lab.startWithVK14("id1284=off," + kNoStatusYet);
    REQUIRE_FALSE(lab.printer()->printerCommandQueue());
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    REQUIRE(lab.operatorDesk.title() == "Printer Error");
    REQUIRE(lab.operatorDesk.press("Cancel"));
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::notOpened});
    CHECK(lab.update().verdict.isUntouched());
}

TEST_CASE("a printer that another program takes before the confirmation is answered is reported as busy at once") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.beginUpToQuestion();
    lab.printer()->closeInterface(nullptr);
    lab.rest(1s);
    lab.bus.setHeldByOther(0, true);
    lab.forgetWire();
    REQUIRE(lab.operatorDesk.press(lab.operatorDesk.buttons().at(1)));
    lab.rest(1s);
    CHECK(lab.ends == Results{UpdateResult::busy});
    CHECK(lab.update().verdict.isUntouched());
    CHECK(lab.wire() == Wire{});
    lab.bus.setHeldByOther(0, false);
    lab.rest();
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::busy, UpdateResult::succeeded});
}

TEST_CASE("a printer that cannot be opened for the first command is reported at once") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.beginUpToQuestion();
    lab.happens(events::OrderFailed{});
    CHECK(lab.ends == Results{UpdateResult::notOpened});
    CHECK(lab.update().verdict.reason == "the printer could not be opened");
}

// ---- while the record is stored -------------------------------------------------------------------------------------

TEST_CASE("an update stopped before its record is stored does not begin afterwards") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.supervisor.requestStop();
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::stopped});
    CHECK(lab.operatorDesk.waiting() == 0);
    CHECK(lab.newestRecord().verdicts.at(0).verdict == "stopped");
}

TEST_CASE("an update ends without a question if the printer is unplugged before the record is stored") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.bus.unplug(0);
    lab.rest();
    CHECK(lab.ends == Results{UpdateResult::left});
    CHECK(lab.operatorDesk.waiting() == 0);
    CHECK(lab.update().advice == "Start the update again.");
}

TEST_CASE("the record of a printer without a serial number reply has no serial number") {
    SupervisedLab lab;
    lab.startWithVK14("fault=silence@SERIAL_NUMBER,fault=silence@SERIAL_NUMBER#2");
    REQUIRE(lab.infoText(HOLVEN_TBPrinterSerialNumber) == "NULL");
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    CHECK(lab.newestRecord().model == "VK14");
    CHECK(lab.newestRecord().serial.empty());
}

// ---- up to date or not ----------------------------------------------------------------------------------------------

TEST_CASE("a printer with the available tables and other firmware is not up to date") {
    SupervisedLab lab;
    lab.startWithVK14("firmware=VK14 01.60,tables=0161");
    CHECK_FALSE(lab.supervisor.isUpToDate(*lab.printer()));
}

TEST_CASE("different tables are detected only by a table's version") {
    SupervisedLab lab;
    lab.startWithVK14("firmware=VK14 01.61,tables=0161");
    const auto values = lab.printer()->deviceInfoDict();
    const std::string key = HOLVEN_TBPrinterColorTableVersion;
    for (const char* unclear : {"NULL", "", "01610"}) {
        CAPTURE(unclear);
        values->setString(key, unclear);
        CHECK(lab.supervisor.isUpToDate(*lab.printer()));
    }
    values->setString(key, "0160");
    CHECK_FALSE(lab.supervisor.isUpToDate(*lab.printer()));
}

// ---- pending questions ----------------------------------------------------------------------------------------------

TEST_CASE("answering the report of the previous update late does not end the wait for a later question's answer") {
    SupervisedLab lab;
    lab.startWithVK14();
    lab.beginUpdate();
    lab.rest();
    REQUIRE(lab.operatorDesk.title() == "Firmware update was successful!");
    lab.supervisor.begin(lab.printer(), Equal::install);
    lab.rest(1s);
    REQUIRE(lab.operatorDesk.waiting() == 2);
    REQUIRE(lab.operatorDesk.press("Finish"));
    CHECK(lab.operatorDesk.title() == "Attention:");
    CHECK(lab.update().isAsking);
    lab.rest(10min);
    CHECK_FALSE(lab.update().isStalled);
    lab.agree();
    CHECK_FALSE(lab.operatorDesk.title() == "Attention:");
}

// ---- a printer that returns at another location ---------------------------------------------------------------------

TEST_CASE("another printer is not taken for the awaited one") {
    std::string waitedFor = "fault=never-back@FLASH_REWRITE";
    std::string other;
    bool isTheSame = false;
    SUBCASE("unless it has its serial number") {
        other = "VK14,location=1-2,serial=000001";
        isTheSame = true;
    }
    SUBCASE("if it has another serial number") {
        other = "VK14,location=1-2,serial=000002";
    }
    SUBCASE("if it is of another model") {
        other = "VK18,location=1-2,serial=000001";
    }
    SUBCASE("if it has another vendor ID") {
        other = "VK14,vendor=0x2B84,location=1-2,serial=000001";
    }
    SUBCASE("if neither has reported a serial number") {
        const std::string unknown = ",usb-serial=off,fault=silence@SERIAL_NUMBER,fault=silence@SERIAL_NUMBER#2";
        waitedFor += unknown;
        other = "VK14,location=1-2" + unknown;
    }
    SupervisedLab lab;
    lab.environment.admittedProductIDs = {kProductVK18};
    lab.attach("VK14,location=1-1," + waitedFor);
    lab.start();
    lab.beginUpdate();
    lab.rest(10s);
    REQUIRE_FALSE(lab.update().state.isAttached);
    lab.attach(other);
    lab.rest(40s);
    REQUIRE(lab.rows() == 1);
    CHECK(lab.update().cameBackAt == (isTheSame ? "1-2" : ""));
    CHECK(lab.update().advice.empty() != isTheSame);
}

TEST_CASE("a loader without a serial number is taken for the awaited printer only if it is unambiguous") {
    const std::string kUnknown = "usb-serial=off,fault=silence@SERIAL_NUMBER,fault=silence@SERIAL_NUMBER#2";
    SupervisedLab lab;
    std::vector<std::string> others = {"VK14,mode=loader,usb-serial=off,location=1-7"};
    std::string cameBackAt;
    bool areTwoAway = false;
    SUBCASE("one loader") {
        cameBackAt = "1-7";
    }
    SUBCASE("a printer in normal mode") {
        others = {"VK14,location=1-7," + kUnknown};
    }
    SUBCASE("two loaders") {
        others.emplace_back("VK14,mode=loader,usb-serial=off,location=1-8");
    }
    SUBCASE("one loader, and two awaited printers") {
        areTwoAway = true;
    }
    lab.attach("VK14,location=1-1,fault=never-back@FLASH_REWRITE," + kUnknown);
    if (areTwoAway) lab.attach("VK14,location=1-2,fault=never-back@FLASH_REWRITE,serial=2," + kUnknown);
    lab.start();
    const std::string key = lab.printer()->keyUSBdevice();
    lab.beginAllUpdates();
    lab.rest(10s);
    REQUIRE(lab.rows() == 0);
    for (const std::string& other : others) lab.attach(other);
    lab.rest(15s);
    CHECK(lab.rows() == others.size());
    CHECK(lab.supervisor.updates().at(key).cameBackAt == cameBackAt);
}

TEST_CASE("a location that turns out to be another printer's is no longer reported") {
    SupervisedLab lab;
    lab.startWithVK14("location=1-1,usb-serial=off,fault=never-back@FLASH_REWRITE");
    lab.beginUpdate();
    lab.rest(10s);
    lab.attach("VK14,mode=loader,usb-serial=off,location=1-7");
    lab.rest(5s);
    REQUIRE(lab.update().cameBackAt == "1-7");
    lab.attach("VK14,mode=loader,usb-serial=off,location=1-8");
    lab.rest(5s);
    CHECK(lab.update().cameBackAt.empty());
    CHECK(lab.update().advice.empty());
}

TEST_CASE("an attached printer has not returned elsewhere, whatever serial number another one has") {
    SupervisedLab lab;
    lab.startWithVK14("location=1-1,restart=1000,program=60000");
    lab.beginUpdate();
    while (lab.update().state.phase != UpdatePhase::programming) lab.advance(100ms);
    lab.attach("VK14,location=1-2,serial=000001");
    lab.rest(10s);
    CHECK(lab.update().state.phase == UpdatePhase::programming);
    CHECK(lab.update().cameBackAt.empty());
}
