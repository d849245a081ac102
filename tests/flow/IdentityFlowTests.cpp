// Printers that do not report their device ID: what an update can still do, and how long they block the main queue.
#include "SupervisedLab.h"

#include <doctest/doctest.h>

using namespace zul;
using namespace std::chrono_literals;

namespace {

// Stored before the printer is attached, as if it had been detached during an update.
void leaveInUpdate(std::int64_t progress) {
    const auto saved = TBUSBPrinter::deviceInfoForKey("2A71000301100000");
    saved->set(HOLVEN_TBPrinterDeviceFirmwareStatus, progress);
    saved->set(HOLVEN_TBPrinterFirmwareVersionPrevious, std::string("VK14 01.60"));
}

// How long an arrival blocks the main queue. The bus reports an arrival at once.
Clock::Duration timeOfArrival(Lab& lab, const std::string& description) {
    const auto begin = lab.clock.elapsed();
    lab.attach(description);
    return lab.clock.elapsed() - begin;
}

} // namespace

TEST_CASE("a printer that returns from an update without its device ID gets no tables, and its progress is kept") {
    Lab lab;
    lab.start();
    leaveInUpdate(2);
    lab.attach("VK14,id1284=off,status=01000,firmware=VK14 01.61");
    lab.rest();
    REQUIRE(lab.rows() == 1);
    CHECK(lab.wire() == Wire{"arrive", "INFO  FVER", "STATUS", "INFO  FVER", "MNT_RDCOUNTER_LIFE", "TBL_RDVersion",
                             "MNT_RDCTRLD_CHKSUM", "INFO  SERIAL_NUMBER"});
    CHECK(lab.logged("firmware version changed from VK14 01.60 to VK14 01.61"));
    CHECK(lab.progress() == 2); // a replug with the ID then writes the tables
    CHECK(lab.operatorDesk.waiting() == 0);
    const std::string key = lab.printer()->keyUSBdevice();
    lab.bus.unplug(0);
    lab.rest();
    CHECK(lab.rows() == 0);
    CHECK(TBUSBPrinter::deviceInfoForKey(key)->integer(HOLVEN_TBPrinterDeviceFirmwareStatus) == 2);
}

TEST_CASE("an update whose loader does not report its device ID succeeds") {
    SupervisedLab lab;
    lab.startWithVK14("fault=no-id@FLASH_REWRITE");
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.notes == std::vector<std::string>{
                           "VK14 000001 (1-1) does not report its device ID in its loader; its update continues"});
    CHECK(lab.timesLogged("the printer at 1-1 did not report its device ID") == 1);
    CHECK(lab.timesSeen("FW_UPDFLASH_PROGRAM") == 1);
    CHECK(lab.result() == UpdateResult::succeeded);
    CHECK(lab.operatorDesk.waiting() == 1);
}

TEST_CASE("an update whose new firmware does not report its device ID says so, and is completed by a replug") {
    SupervisedLab lab;
    lab.startWithVK14("fault=no-id@FLASH_PROGRAM");
    lab.beginUpdate();
    lab.rest();
    CHECK(lab.timesSeen("TBL_CL") == 0);
    CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion) == "VK14 01.61");
    CHECK(lab.result() == UpdateResult::identityLost);
    CHECK(lab.update().verdict.reason.find("does not report its device ID") != std::string::npos);
    lab.bus.unplug(0);
    lab.rest();
    lab.bus.plug(0);
    lab.rest();
    CHECK(lab.timesSeen("TBL_WTCTRLD_UPDATE_CW") == 2);
    CHECK(lab.ends == std::vector<UpdateResult>{UpdateResult::identityLost, UpdateResult::succeeded});
}

TEST_CASE("a loader without a device ID is offered for completion after a restart of the program") {
    SupervisedLab lab;
    std::string settings;
    std::string available = "start the update to complete it";
    SUBCASE("it reports its device ID") {}
    SUBCASE("it does not report it") {
        settings = ",id1284=off";
        available += "; it does not report its device ID: switch it off and on first";
    }
    lab.attach("VK14,mode=loader" + settings);
    lab.start();
    CHECK(lab.supervisor.interruptedText(*lab.printer()) == available);
}

TEST_CASE("a printer in normal mode without its device ID has no update to complete") {
    SupervisedLab lab;
    lab.startWithVK14("id1284=off");
    CHECK(lab.supervisor.interruptedText(*lab.printer()).empty());
}

TEST_CASE("a loader without its device ID gets only the status query before its image") {
    Lab lab;
    lab.start();
    leaveInUpdate(1);
    lab.attach("VK14,id1284=off,mode=loader,fault=never-back@PROGRAM");
    lab.rest();
    CHECK(lab.wire() == Wire{"arrive", "STATUS", "FW_UPDFLASH_PROGRAM", "STATUS", "leave"});
}

TEST_CASE("the arrival of a printer without its device ID blocks the main queue for one time-out and the image's "
          "time") {
    const std::string questions[] = {"STATUS", "FVER", "LIFE", "TBL_RDVersion", "CHKSUM", "SERIAL"};
    for (const int progress : {0, 1, 2, 3}) {
        for (const std::string& question : questions) {
            CAPTURE(progress);
            CAPTURE(question);
            Lab lab;
            lab.start();
            if (progress > 0) leaveInUpdate(progress);
            CHECK(timeOfArrival(lab, "VK14,id1284=off,fault=silence@" + question) <= 5s);
            lab.rest();
            CHECK(lab.rows() == 1);
        }
    }
    Lab lab;
    lab.start();
    leaveInUpdate(1);
    CHECK(timeOfArrival(lab, "VK14,id1284=off,mode=loader,fault=silence@STATUS#2") <= 5s + 500ms);
}

TEST_CASE("an unresponsive printer without its device ID can be queried again, with replies in step") {
    Lab lab;
    lab.start();
    lab.attach("VK14,id1284=off,fault=late@FVER");
    lab.rest();
    REQUIRE(lab.printer()->firmwareVersion() == std::nullopt);
    lab.advance(10s); // the late reply has arrived
    lab.printer()->updateInfo();
    lab.rest();
    CHECK(lab.infoText(HOLVEN_TBPrinterFirmwareVersion) == "VK14 01.60");
    CHECK(lab.infoText(HOLVEN_TBPrinterSerialNumber) == "000001");
    CHECK(lab.infoText(HOLVEN_TBPrinterStatus) == "Idle");
}
