// The printer's own list of commands. It repeats the host's table on purpose: a test compares both.
// Constant; used on any thread.
#include "virtual_printer/VirtualCommands.h"

#include <array>
#include <span>
#include <string_view>

namespace zul {

namespace {

// clang-format off
constexpr auto kTexts = std::to_array<std::string_view>({
    "STATUS",
    "INFO  FVER",            "INFO  SERIAL_NUMBER",   "INFO  MEDIA",           "INFO  FREE_PBUFFER",
    "INFO  MQTY",
    "IMAGE MULTICUT",        "CNTRL OVERCOAT",        "IMAGE YPLANE",          "IMAGE MPLANE",
    "IMAGE CPLANE",          "CNTRL CUTTER",          "CNTRL START",
    "TBL_CL",                "TBL_WTCTRLD_UPDATE_CW", "TBL_RDVersion",         "TBL_WTVersion",
    "MNT_RDCTRLD_CHKSUM",
    "TBL_RDCWD300_Version",  "TBL_RDCWD600_Version",  "TBL_RDCWD610_Version",  "TBL_RDCWD620_Version",
    "TBL_RDCWD300_Checksum", "TBL_RDCWD600_Checksum", "TBL_RDCWD610_Checksum", "TBL_RDCWD620_Checksum",
    "MNT_RDCOUNTER_LIFE",    "MNT_RDCOUNTER_A",       "MNT_RDCOUNTER_B",       "MNT_WTCOUNTER_CLR",
    "MNT_RDCOUNTER_P",       "MNT_WTCOUNTERP_SET",    "MNT_RDCOUNTER_MATTE",   "MNT_RDCOUNTER_M",
    "FW_UPDFLASH_REWRITE",   "FW_UPDFLASH_PROGRAM",   "MNT_WTUSB_ISERI_SET",   "MNT_RDUSB_ISERI_SET",
});
// clang-format on

} // namespace

std::span<const std::string_view> virtualCommandTexts() {
    return kTexts;
}

// The printers answer what reads; what writes or prints has no answer.
bool virtualCommandHasAnswer(std::string_view text) {
    return text == "STATUS" || text.starts_with("INFO") || text.starts_with("TBL_RD") || text.starts_with("MNT_RD");
}

} // namespace zul
