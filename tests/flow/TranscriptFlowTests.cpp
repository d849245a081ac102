// The wire of a whole update, byte for byte and in order: claims, frames, reads, releases, departures. The printer's
// journal is compared with one literal list, so that no entry may be missing, added or moved.
#include "Lab.h"

#include <doctest/doctest.h>

using namespace zul;

namespace {

// As one text, so that a failing test shows all of it.
std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + '\n';
    return text;
}

// One line per journal entry. A frame is shown as its bytes, a long payload as its length.
std::string transcriptOf(const Lab& lab) {
    std::vector<std::string> lines;
    for (const VirtualJournalEntry& entry : lab.journal->entries()) {
        std::string line = entry.event;
        if (entry.event == "command") {
            line = "> ";
            for (const std::uint8_t byte : entry.header) line += byte == 0x1B ? "<ESC>" : std::string(1, char(byte));
            if (entry.length > 0) line += " +" + std::to_string(entry.length);
        } else if (entry.event == "read") {
            line = "< " + std::to_string(entry.length) + entry.result;
        } else if (entry.event == "control") {
            line += " " + entry.command;
        }
        lines.push_back(line);
    }
    return joined(lines);
}

} // namespace

TEST_CASE("the wire of an update over both restarts is this, byte for byte") {
    Lab lab;
    lab.startWithVK14();
    lab.update();
    const std::string wanted = joined(
        {// the check and the first half
         "open", "> <ESC>PSTATUS                        ", "< 8", "< 6", "> <ESC>PSTATUS                        ",
         "< 8", "< 6", "> <ESC>PFW_UPDFLASH_REWRITE           ", "close", "leave",
         // the loader
         "arrive", "control GET_DESCRIPTOR 0300", "control GET_DESCRIPTOR 0302", "control GET_DESCRIPTOR 0303",
         "control GET_DESCRIPTOR 0301", "control GET_DEVICE_ID", "open", "> <ESC>PINFO  FVER                    ",
         "< 0timeout", "> <ESC>PSTATUS                        ", "< 8", "< 8",
         "> <ESC>PFW_UPDFLASH_PROGRAM   01920060 +1920060", "> <ESC>PSTATUS                        ", "< 8", "< 8",
         "close", "leave",
         // the new firmware
         "arrive", "control GET_DESCRIPTOR 0300", "control GET_DESCRIPTOR 0302", "control GET_DESCRIPTOR 0303",
         "control GET_DESCRIPTOR 0301", "control GET_DEVICE_ID", "open", "> <ESC>PINFO  FVER                    ",
         "< 8", "< 11", "> <ESC>PSTATUS                        ", "< 8", "< 6",
         "> <ESC>PTBL_CL                        ", "> <ESC>PTBL_RDVersion                 ", "< 8", "< 5",
         "> <ESC>PMNT_RDCTRLD_CHKSUM            ", "< 8", "< 5", "> <ESC>PTBL_WTVersion         00000020 +20",
         "> <ESC>PTBL_WTCTRLD_UPDATE_CW 00032577 +32577", "> <ESC>PTBL_RDVersion                 ", "< 8", "< 5",
         "> <ESC>PMNT_RDCTRLD_CHKSUM            ", "< 8", "< 5", "> <ESC>PTBL_WTVersion         00000020 +20",
         "> <ESC>PTBL_WTCTRLD_UPDATE_CW 00038913 +38913", "> <ESC>PTBL_RDVersion                 ", "< 8", "< 5",
         "> <ESC>PMNT_RDCTRLD_CHKSUM            ", "< 8", "< 5", "> <ESC>PSTATUS                        ", "< 8", "< 6",
         "> <ESC>PSTATUS                        ", "< 8", "< 6", "> <ESC>PINFO  FVER                    ", "< 8",
         "< 11", "> <ESC>PMNT_RDCOUNTER_LIFE            ", "< 8", "< 10", "> <ESC>PTBL_RDVersion                 ",
         "< 8", "< 5", "> <ESC>PMNT_RDCTRLD_CHKSUM            ", "< 8", "< 5", "> <ESC>PINFO  SERIAL_NUMBER           ",
         "< 8", "< 7", "close"});
    CHECK(transcriptOf(lab) == wanted);
}

TEST_CASE("the wire of a first attachment is this, byte for byte") {
    Lab lab;
    lab.attach("VK14");
    lab.start();
    const std::string wanted = joined({"arrive",
                                       "control GET_DESCRIPTOR 0300",
                                       "control GET_DESCRIPTOR 0302",
                                       "control GET_DESCRIPTOR 0303",
                                       "control GET_DESCRIPTOR 0301",
                                       "control GET_DEVICE_ID",
                                       "open",
                                       "> <ESC>PSTATUS                        ",
                                       "< 8",
                                       "< 6",
                                       "> <ESC>PINFO  FVER                    ",
                                       "< 8",
                                       "< 11",
                                       "> <ESC>PMNT_RDCOUNTER_LIFE            ",
                                       "< 8",
                                       "< 10",
                                       "> <ESC>PTBL_RDVersion                 ",
                                       "< 8",
                                       "< 5",
                                       "> <ESC>PMNT_RDCTRLD_CHKSUM            ",
                                       "< 8",
                                       "< 5",
                                       "> <ESC>PINFO  SERIAL_NUMBER           ",
                                       "< 8",
                                       "< 7",
                                       "close"});
    CHECK(transcriptOf(lab) == wanted);
}
