// What happens to printers, told as it happens: for the update monitor of the command line and of the window. Watching
// changes nothing: the engine never asks whether anybody listens.
#pragma once

#include "platform/usb/IOReturn.h"

#include <cstdint>
#include <optional>
#include <string>

namespace zul {

struct PrinterEvent {
    enum class Kind {
        arrived,         // a printer object exists for key
        departed,        // its service has left the bus
        opened,          // code: the result of an open
        commandSent,     // command, payloadLength, code: the write's result
        writeProgress,   // bytesDone of bytesTotal of the frame under way (frame bytes, 32 more than the payload)
        replyRead,       // command's answer came; text: the body
        replyMissing,    // code: the read's result
        status,          // text: the raw status
        firmwareVersion, // text: as read (nothing when unreadable)
        progressValue,   // value: "deviceFirmwareStatus" was set (1, 2, 3), 0: removed
        colorTable,      // value: n of total tables is about to be written; text: the file's name
        archiveRefused,  // the files were damaged when they were needed; nothing was sent
        finished,        // value: 1 when at least one table was sent; text: the version then known
        notPermitted,    // the device node may not be opened: text is the node, location where
        openFailed,      // a printer was found whose handle could not be made (code)
    };
    Kind kind = Kind::arrived;
    std::string key;      // keyUSBdevice; empty when not known
    std::string location; // for example "1-2"; may be empty
    IOReturn code = kIOReturnSuccess;
    std::uint32_t command = 0; // command code
    std::uint32_t payloadLength = 0;
    std::uint32_t bytesDone = 0;
    std::uint32_t bytesTotal = 0;
    std::int64_t value = 0;
    std::int64_t total = 0;
    std::optional<std::string> text;
};

class PrinterEventsOutlet {
  public:
    virtual ~PrinterEventsOutlet() = default;
    /// On whatever thread it happens; must return quickly and never call the engine.
    virtual void printerEvent(const PrinterEvent& event) = 0;
};

} // namespace zul
