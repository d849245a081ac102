// How a virtual printer is described in one text: "MODEL[,key=value…]". The same text makes an embedded printer and a
// USB gadget. Any thread.
//
//   firmware=TEXT        version that it reports, e.g. "VK14 01.60"
//   serial=TEXT          printer serial number
//   usb-serial=on|off    whether it has a USB serial number
//   status=CODE[:CODE…]  answers to STATUS, one after another; the last one stays (default 00000)
//   after-update=CODE…   the same after the restart into new firmware
//   lifetime=N           lifetime print counter
//   tables=VERSION       version of its color tables, four digits, e.g. 0161
//   restart=MS           how long a restart keeps it away (default 2000)
//   program=MS           how long it programs its flash after the image before it leaves (default 1000)
//   speed=BYTES          bytes per second that it takes (default 4000000)
//   vendor=0x2A71|0x2B84 USB vendor ID
//   location=BUS-PORT    where it is attached, e.g. 1-3
//   mode=normal|loader   how it is when it is first attached
//   id1284=on|off        whether it answers the request for its IEEE 1284 device ID
//   interfaces=1|2       how many printer interfaces it has; they lead to the same printer
//   fault=KIND[@WORD][#N][:VALUE]   may be given several times; the kinds are below
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zul {

struct VirtualModel;

enum class VirtualFaultKind {
    stall,        // the answer (or, where there is none, the command) stalls its pipe
    silence,      // no answer
    shortReply,   // half of the announced body
    longHeader,   // a body longer than any printer sends is announced
    noReturn,     // a body without its carriage return
    garbage,      // a header that is no number
    late,         // the answer comes after VALUE ms (default 7000)
    unplug,       // leaves when VALUE bytes of the frame are there (default: half of it) and comes back
    neverBack,    // the restart that this command causes never ends
    elsewhere,    // comes back from it on another port
    holder,       // at the N-th open another program holds the interface, for VALUE ms (default 3000)
    stayInLoader, // comes back from it as its loader
};

struct VirtualFault {
    VirtualFaultKind kind = VirtualFaultKind::silence;
    std::string word;   // part of the command's text; empty: any command
    int occurrence = 1; // counted from 1
    std::optional<std::uint32_t> value;
};

struct VirtualPrinterSettings {
    const VirtualModel* model = nullptr;
    std::uint16_t vendorID = 0x2A71;
    std::string firmware;
    std::string serial = "000001";
    bool hasUSBSerial = true;
    std::vector<std::string> statuses = {"00000"};
    std::vector<std::string> statusesAfterUpdate;
    std::uint32_t lifetime = 42;
    std::string tableVersion; // empty: the model's
    std::chrono::milliseconds restartTime{2000};
    std::chrono::milliseconds programTime{1000};
    std::uint32_t speed = 4000000;
    std::optional<std::pair<std::uint8_t, std::uint8_t>> location; // bus, port; default: the next free port
    bool startsInLoader = false;
    bool answersDeviceID = true;
    int interfaces = 1;
    std::vector<VirtualFault> faults;
};

struct VirtualPrinterParse {
    std::optional<VirtualPrinterSettings> settings;
    std::string problem; // what is wrong and what would be right; empty when nothing is
};

VirtualPrinterParse parseVirtualPrinter(const std::string& text);

/// The syntax, for people.
std::string virtualPrinterHelp();

} // namespace zul
