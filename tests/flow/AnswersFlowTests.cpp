// Late, missing, truncated or invalid replies to each query: no later reply is taken for an earlier query, and the
// update afterwards succeeds.
#include "SupervisedLab.h"

#include <array>
#include <doctest/doctest.h>
#include <string_view>

using namespace zul;
using namespace std::chrono_literals;

namespace {

constexpr auto kQuestions =
    std::to_array<std::string_view>({"STATUS", "FVER", "LIFE", "TBL_RDVersion", "CHKSUM", "SERIAL_NUMBER"});
// The delays are: after the second query, while the pipe is drained, and during the following queries.
constexpr auto kKinds = std::to_array<std::string_view>(
    {"late:7000", "late:5050", "late:5100", "garbage", "short", "long-header", "no-cr", "silence", "stall"});

// One of each kind, for whole updates.
constexpr auto kSorts = std::to_array<std::string_view>({"late:7000", "garbage", "short", "silence"});

std::string fault(std::string_view kind, std::string_view word, int occurrence = 1) {
    const auto colon = std::min(kind.find(':'), kind.size());
    const std::string name(kind.substr(0, colon));
    return "fault=" + name + "@" + std::string(word) + "#" + std::to_string(occurrence) +
           std::string(kind.substr(colon));
}

// On one line, so that a failing test shows all values.
std::string infoOf(const Lab& lab) {
    std::string values;
    for (const char* key :
         {HOLVEN_TBPrinterStatus, HOLVEN_TBPrinterFirmwareVersion, HOLVEN_TBPrinterLifetimeCounter,
          HOLVEN_TBPrinterColorTableVersion, HOLVEN_TBPrinterColorTableChecksum300, HOLVEN_TBPrinterSerialNumber}) {
        values += (values.empty() ? "" : ", ") + lab.infoText(key);
    }
    return values;
}

const std::string kRight = "Idle, VK14 01.60, 42, 0160, 1203, 000001";

// Leaves a reply unread in the pipe, as a program that ended in mid-exchange does.
void leaveAnswerUnread(Lab& lab, const std::string& command) {
    const ServiceToken token = lab.registry.services().at(0);
    std::shared_ptr<IOUSBInterfaceInterface> handle;
    REQUIRE(lab.registry.service(token)->createInterfaceInterface(handle) == kIOReturnSuccess);
    REQUIRE(handle->USBInterfaceOpenSeize() == kIOReturnSuccess);
    Data frame(32, ' ');
    frame[0] = 0x1B;
    frame[1] = 'P';
    std::ranges::copy(command, frame.begin() + 2);
    REQUIRE(handle->WritePipeTO(1, frame.data(), 32, 5000, 5000) == kIOReturnSuccess);
}

} // namespace

TEST_CASE("the device info of a printer without faults has these values") {
    Lab lab;
    lab.attach("VK14");
    lab.start();
    CHECK(infoOf(lab) == kRight);
}

TEST_CASE("one bad reply at an arrival leaves the device info correct, then and later") {
    for (const std::string_view kind : kKinds) {
        for (const std::string_view question : kQuestions) {
            CAPTURE(kind);
            CAPTURE(question);
            Lab lab;
            lab.attach("VK14," + fault(kind, question));
            lab.start();
            CHECK(infoOf(lab) == kRight);
            lab.printer()->updateInfo();
            lab.rest();
            CHECK(infoOf(lab) == kRight);
            CHECK(lab.printer()->ownership() == Ownership::none);
        }
    }
}

TEST_CASE("an update after one bad reply at an arrival succeeds") {
    for (const std::string_view kind : kKinds) {
        CAPTURE(kind);
        SupervisedLab lab;
        lab.startWithVK14(fault(kind, "FVER"));
        lab.beginUpdate();
        lab.rest();
        CHECK(lab.result() == UpdateResult::succeeded);
    }
}

TEST_CASE("an update with one bad reply during its check or its run succeeds") {
    for (const std::string_view kind : kSorts) {
        for (int question = 2; question <= 7; ++question) { // the check, the first half, the loader, the new firmware
            CAPTURE(kind);
            CAPTURE(question);
            SupervisedLab lab;
            lab.startWithVK14(fault(kind, "STATUS", question));
            lab.supervisor.begin(lab.printer(), UpdateSupervisor::Equal::install);
            lab.rest(1s);
            lab.agree();
            lab.rest(20s);
            REQUIRE(lab.operatorDesk.title().starts_with("-- Warning --"));
            REQUIRE(lab.operatorDesk.press(lab.operatorDesk.buttons().at(1)));
            lab.rest();
            CHECK(lab.result() == UpdateResult::succeeded);
            CHECK(lab.timesSeen("FW_UPDFLASH_PROGRAM") == 1);
            CHECK(lab.infoText(HOLVEN_TBPrinterStatus) == "Idle");
            CHECK(lab.infoText(HOLVEN_TBPrinterSerialNumber) == "000001");
        }
    }
}

TEST_CASE("an update with one bad reply of the new firmware succeeds, with correct device info") {
    for (const std::string_view kind : kSorts) {
        for (const auto& [question, occurrence] :
             {std::pair{"FVER", 3}, {"TBL_RDVersion", 2}, {"TBL_RDVersion", 4}, {"CHKSUM", 3}}) {
            CAPTURE(kind);
            CAPTURE(std::string(question));
            SupervisedLab lab;
            lab.startWithVK14(fault(kind, question, occurrence));
            lab.beginUpdate();
            lab.rest();
            CHECK(lab.result() == UpdateResult::succeeded);
            CHECK(infoOf(lab).starts_with("Idle, VK14 01.61, 42, 0161, "));
            CHECK(lab.infoText(HOLVEN_TBPrinterSerialNumber) == "000001");
        }
    }
}

TEST_CASE("replies that another program left unread are not taken for replies to later queries") {
    for (const std::string& command : Wire{"STATUS", "INFO  FVER", "MNT_RDCOUNTER_LIFE", "TBL_RDVersion",
                                           "MNT_RDCTRLD_CHKSUM", "INFO  SERIAL_NUMBER"}) {
        for (const int count : {1, 3}) {
            CAPTURE(command);
            CAPTURE(count);
            Lab lab;
            lab.startWithVK14();
            for (int answer = 0; answer < count; ++answer) leaveAnswerUnread(lab, command);
            lab.printer()->updateInfo();
            lab.rest();
            CHECK(infoOf(lab) == kRight);
        }
    }
}

TEST_CASE("a printer that is programming its flash gets no second query, and its pipe is not drained") {
    Lab lab;
    lab.startWithVK14("fault=silence@STATUS#5,program=30000"); // the query after the image
    lab.confirmUpdate();
    lab.rest();
    const Wire wire = lab.wire();
    const auto image = std::ranges::find(wire, std::string("FW_UPDFLASH_PROGRAM"));
    REQUIRE(image != wire.end());
    CHECK(Wire(image, image + 3) == Wire{"FW_UPDFLASH_PROGRAM", "STATUS", "leave"});
    const auto entries = lab.journal->entries();
    CHECK(std::ranges::count(entries, "resynchronize", &VirtualJournalEntry::event) == 0);
    CHECK(lab.operatorDesk.title() == "Firmware update was successful!");
}

TEST_CASE("a printer that is still attached long after the order to restart is queried like any other") {
    Lab lab;
    lab.startWithVK14("fault=silence@STATUS#6,program=900000");
    lab.confirmUpdate();
    lab.rest(6min);
    REQUIRE(lab.wire().back() == "STATUS"); // after the image, and it is still attached
    lab.forgetWire();
    lab.printer()->updateInfo();
    lab.rest(30s);
    CHECK(lab.wire().front() == "STATUS");
    CHECK(std::ranges::count(lab.journal->entries(), "resynchronize", &VirtualJournalEntry::event) == 1);
    CHECK(std::ranges::count(lab.wire(), "STATUS") >= 2); // the query was repeated
}

TEST_CASE("the pipe of a printer with correct replies is never drained") {
    Lab lab;
    lab.startWithVK14();
    lab.update();
    const auto entries = lab.journal->entries();
    CHECK(std::ranges::count(entries, "resynchronize", &VirtualJournalEntry::event) == 0);
}

TEST_CASE("no update begins with the loader's status from before a restart") {
    SupervisedLab lab;
    lab.startWithVK14();
    const std::string key = lab.printer()->keyUSBdevice();
    lab.bus.unplug(0);
    lab.rest();
    TBUSBPrinter::deviceInfoForKey(key)->set(HOLVEN_TBPrinterStatus,
                                             TBUSBPrinterZUL::stringForVKStatusString("FU00001"));
    lab.forgetWire();
    lab.bus.plug(0);
    lab.mainQueue.runPending(); // its row exists, its first reply has not arrived
    REQUIRE(lab.rows() == 1);
    lab.beginUpToQuestion();
    CHECK(lab.timesSeen("FW_UPDFLASH_PROGRAM") == 0);
    CHECK(lab.operatorDesk.title().starts_with("-- Warning --")); // the complete update with its confirmation
}
