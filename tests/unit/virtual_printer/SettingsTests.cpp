// The text that describes a virtual printer.
#include "unit/virtual_printer/Wire.h"

#include "protocol/CommandFrame.h"
#include "virtual_printer/VirtualCommands.h"
#include "virtual_printer/VirtualModels.h"

namespace zul {

using std::chrono::milliseconds;

namespace {
std::string problemOf(const std::string& text) {
    const auto parse = parseVirtualPrinter(text);
    CHECK(!parse.settings);
    return parse.problem;
}
bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}
} // namespace

TEST_CASE("a model alone is a printer whose firmware is one version older than the archive's") {
    const VirtualPrinterSettings settings = described("VK14");
    CHECK(settings.model->name == "VK14");
    CHECK(settings.firmware == "VK14 01.60");
    CHECK(settings.serial == "000001");
    CHECK(settings.statuses == Texts{"00000"});
    CHECK(settings.lifetime == 42);
    CHECK(settings.hasUSBSerial);
    CHECK(settings.answersDeviceID);
    CHECK(!settings.location);
    CHECK(settings.faults.empty());
}

TEST_CASE("models are known by name in any case") {
    for (const VirtualModel& model : virtualModels()) CHECK(described(std::string(model.name)).model == &model);
    CHECK(described("vk-rz7").model->productID == 5);
}

TEST_CASE("every setting is accepted") {
    const VirtualPrinterSettings settings = described(
        "VK26,firmware=VK26 01.40,serial=S9,usb-serial=off,status=01000:00000,after-update=00500,"
        "lifetime=7,tables=0199,restart=10,program=20,speed=30,location=2-3,mode=loader,id1284=off,interfaces=2");
    CHECK(settings.firmware == "VK26 01.40");
    CHECK(settings.serial == "S9");
    CHECK(!settings.hasUSBSerial);
    CHECK(settings.statuses == Texts{"01000", "00000"});
    CHECK(settings.statusesAfterUpdate == Texts{"00500"});
    CHECK(settings.lifetime == 7);
    CHECK(settings.tableVersion == "0199");
    CHECK(settings.restartTime == milliseconds(10));
    CHECK(settings.programTime == milliseconds(20));
    CHECK(settings.speed == 30);
    REQUIRE(settings.location);
    CHECK(settings.location->first == 2);
    CHECK(settings.location->second == 3);
    CHECK(settings.startsInLoader);
    CHECK(!settings.answersDeviceID);
    CHECK(settings.interfaces == 2);
}

TEST_CASE("a fault has a kind, and optionally a word, an occurrence and a value") {
    const auto faults = described("VK14,fault=silence,fault=late@STATUS#3:250,fault=holder#2").faults;
    REQUIRE(faults.size() == 3);
    CHECK(faults[0].kind == VirtualFaultKind::silence);
    CHECK(faults[0].word.empty());
    CHECK(faults[0].occurrence == 1);
    CHECK(!faults[0].value);
    CHECK(faults[1].kind == VirtualFaultKind::late);
    CHECK(faults[1].word == "STATUS");
    CHECK(faults[1].occurrence == 3);
    CHECK(faults[1].value == 250);
    CHECK(faults[2].kind == VirtualFaultKind::holder);
    CHECK(faults[2].occurrence == 2);
}

TEST_CASE("an unknown model is reported together with the known ones") {
    const std::string problem = problemOf("VK99");
    CHECK(has(problem, "\"VK99\""));
    for (const VirtualModel& model : virtualModels()) CHECK(has(problem, std::string(model.name)));
    CHECK(has(problemOf(""), "VK14"));
}

TEST_CASE("an unknown setting is reported together with the known ones") {
    const std::string problem = problemOf("VK14,colour=red");
    CHECK(has(problem, "\"colour\""));
    for (const char* key : {"after-update", "fault", "firmware", "id1284", "interfaces", "lifetime", "location", "mode",
                            "program", "restart", "serial", "speed", "status", "usb-serial"}) {
        CAPTURE(key);
        CHECK(has(problem, key));
        CHECK(has(virtualPrinterHelp(), std::string("  ") + key + "="));
    }
    CHECK(has(problemOf("VK14,"), "\"\" is not a setting"));
}

TEST_CASE("an invalid value is reported together with its setting") {
    for (const char* setting : {"firmware=",      "serial=",       "usb-serial=yes", "status=",
                                "status=00000:",  "lifetime=many", "lifetime=-1",    "lifetime=4294967296",
                                "restart=1s",     "program=",      "speed=0",        "speed",
                                "location=1",     "location=1-16", "location=0-1",   "location=256-1",
                                "location=1-2-3", "mode=broken",   "id1284=1",       "interfaces=3",
                                "tables=161",     "tables=01A1"}) {
        CAPTURE(setting);
        const std::string text = setting;
        CHECK(has(problemOf("VK14," + text), "is not a value for \"" + text.substr(0, text.find('=')) + "\" ("));
    }
}

TEST_CASE("a wrong value is reported with the form of a right one, as the help shows it") {
    CHECK(has(problemOf("VK14,usb-serial=yes"), "(usb-serial=on|off)"));
    CHECK(has(problemOf("VK14,location=1"), "(location=BUS-PORT)"));
    CHECK(has(virtualPrinterHelp(), "  usb-serial=on|off      whether it has a USB serial number\n"));
    CHECK(
        has(virtualPrinterHelp(), "  fault=KIND[@WORD][#N][:VALUE]\n                         misbehaves at the N-th"));
    CHECK(has(virtualPrinterHelp(), "      stay-in-loader "));
}

TEST_CASE("an invalid fault is reported together with the kinds") {
    for (const char* fault : {"", "explode", "stall#0", "stall#x", "late:soon", "stall#4294967296", "@STATUS"}) {
        CAPTURE(fault);
        const std::string problem = problemOf(std::string("VK14,fault=") + fault);
        CHECK(has(problem, "\"fault\""));
        CHECK(has(problem, "stay-in-loader"));
    }
}

TEST_CASE("a fault of a reply is refused for a command without one") {
    for (const char* kind : {"silence", "short", "long-header", "no-cr", "garbage", "late"}) {
        CAPTURE(kind);
        for (const char* word : {"FLASH_REWRITE", "FW_UPDFLASH_PROGRAM", "TBL_CL", "TBL_WT", "COUNTER_CLR", "START"}) {
            CAPTURE(word);
            const std::string problem = problemOf(std::string("VK14,fault=") + kind + '@' + word + "#2");
            CHECK(has(problem, kind));
            CHECK(has(problem, word));
            CHECK(has(problem, "has no answer"));
        }
        // Some commands that contain the word have a reply.
        for (const char* word : {"STATUS", "FVER", "COUNTER", "CTRLD", "TBL_RDVersion", "Version", "ISERI_SET", ""}) {
            CAPTURE(word);
            const std::string at = *word == 0 ? "" : std::string("@") + word;
            CHECK(described(std::string("VK14,fault=") + kind + at).faults.size() == 1);
        }
    }
    for (const char* kind : {"stall", "unplug", "never-back", "elsewhere", "stay-in-loader"}) {
        CAPTURE(kind);
        CHECK(described(std::string("VK14,fault=") + kind + "@FLASH_REWRITE").faults.size() == 1);
    }
}

TEST_CASE("virtual printers know every command of the program by its text") {
    std::vector<std::string_view> texts;
    for (std::uint32_t code = 0; code < 100; ++code) {
        if (const auto text = commandText(code)) texts.push_back(*text);
    }
    const auto known = virtualCommandTexts();
    CHECK(texts == std::vector<std::string_view>(known.begin(), known.end()));
}

TEST_CASE("the help explains every model and every fault") {
    const std::string help = virtualPrinterHelp();
    for (const VirtualModel& model : virtualModels()) CHECK(has(help, std::string(model.name)));
    for (const char* kind : {"stall", "silence", "short", "long-header", "no-cr", "garbage", "late", "unplug",
                             "never-back", "elsewhere", "holder", "stay-in-loader", "no-id"}) {
        CAPTURE(kind);
        CHECK(has(help, std::string("      ") + kind));
        CHECK(described(std::string("VK14,fault=") + kind).faults.size() == 1);
    }
}

} // namespace zul
