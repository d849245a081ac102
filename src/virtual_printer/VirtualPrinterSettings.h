// How a virtual printer is described in one text: "MODEL[,key=value…]". The same text makes an embedded printer and a
// USB gadget. virtualPrinterHelp() lists the models, the keys and the kinds of faults. Any thread.
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
    garbage,      // a header that is not a number
    late,         // the answer comes after VALUE ms (default 7000)
    unplug,       // leaves when VALUE bytes of the frame are there (default: half of it) and comes back
    neverBack,    // the restart that this command causes never ends
    elsewhere,    // comes back from it on another port
    holder,       // at the N-th open another program holds the interface, for VALUE ms (default 3000)
    stayInLoader, // comes back from it as its loader
    withoutID,    // comes back from it without its IEEE 1284 device ID
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

/// Reads such a text; a key that is not given has the default that the struct shows. Any thread.
VirtualPrinterParse parseVirtualPrinter(const std::string& text);

/// The syntax with all models, keys and kinds of faults, for a terminal. Any thread.
std::string virtualPrinterHelp();

} // namespace zul
