// The text that describes a virtual printer: "MODEL[,key=value…]". The same text creates an embedded printer or a USB
// gadget. virtualPrinterHelp() lists models, keys and kinds of faults. Any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zul {

struct VirtualModel;

/// How the printer misbehaves; VALUE is the fault's own number.
enum class VirtualFaultKind {
    stall,        // the reply (or, without a reply, the command) stalls its pipe
    silence,      // no reply
    shortReply,   // half of the announced body
    longHeader,   // the header announces a body longer than any printer sends
    noReturn,     // a body without its carriage return
    garbage,      // a header that is not a number
    late,         // the reply comes after VALUE ms (default 7000)
    unplug,       // departs when VALUE bytes of the frame have arrived (default: half of it) and returns
    neverBack,    // the restart caused by this command never ends
    elsewhere,    // the restart ends on another port
    holder,       // at the N-th open another program holds the interface, for VALUE ms (default 3000)
    stayInLoader, // the restart ends in the loader
    withoutID,    // after the restart it has no IEEE 1284 device ID
};

/// One misbehaviour, which happens once.
struct VirtualFault {
    VirtualFaultKind kind = VirtualFaultKind::silence;
    std::string word;   // part of the command's text; empty: any command
    int occurrence = 1; // from 1
    std::optional<std::uint32_t> value;
};

/// A printer as it is when it is first attached. Speed in bytes per second.
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

/// Either settings or a problem.
struct VirtualPrinterParse {
    std::optional<VirtualPrinterSettings> settings;
    std::string problem; // what is wrong and what would be right; empty without a problem
};

/// Parses the text; missing keys have the defaults of the struct. Any thread.
VirtualPrinterParse parseVirtualPrinter(const std::string& text);

/// Help for a terminal: the syntax with all models, keys and kinds of faults. Any thread.
std::string virtualPrinterHelp();

} // namespace zul
