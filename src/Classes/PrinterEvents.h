// What happens to printers, reported as it happens, for whoever follows updates. Reporting changes nothing: the engine
// never asks whether anybody listens.
#pragma once

#include "Classes/AlertKind.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/PrinterReservations.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace zul {

namespace events {

/// A printer object exists for the key. Main queue.
struct Arrived {};
/// The printer's service has left the bus. Main queue.
struct Departed {};
/// An open of the interface has ended.
struct Opened {
    IOReturn code = kIOReturnSuccess;
    std::optional<InterfaceHolder> holder = {}; // for kIOReturnExclusiveAccess: who has it, as far as that is known
};
/// A frame was handed to the bus.
struct CommandSent {
    std::uint32_t command = 0;       // command code
    std::uint32_t payloadLength = 0; // bytes
    IOReturn code = kIOReturnSuccess;
};
/// Bytes of the frame that is being written; a frame is 32 bytes longer than its payload.
struct WriteProgress {
    std::uint32_t bytesDone = 0;
    std::uint32_t bytesTotal = 0;
};
/// The body of an answer was read.
struct ReplyRead {
    std::optional<std::string> text; // nullopt if it is not UTF-8
};
/// An answer did not come.
struct ReplyMissing {
    IOReturn code = kIOReturnSuccess;
};
/// The printer's status was read.
struct StatusRead {
    std::optional<std::string> rawStatus; // nullopt if it is not UTF-8
};
/// The firmware version was read.
struct FirmwareVersionRead {
    std::optional<std::string> version; // nullopt if it is not UTF-8
};
/// The version or the checksum of a colour table was read.
struct TableInfoRead {
    std::string key;                  // of deviceInfoDict
    std::optional<std::string> value; // nullopt if the printer did not answer
};
/// The update's progress was stored ("deviceFirmwareStatus").
struct ProgressStored {
    std::int64_t value = 0; // 1, 2, 3; 0: removed
};
/// A colour table is about to be written.
struct TableBegun {
    std::int64_t number = 0; // from 1
    std::int64_t total = 0;
    std::string name; // the file's
};
/// The firmware files did not serve when they were needed; nothing was sent.
struct ArchiveRefused {};
/// The engine has come to the end of an update and reports it.
struct UpdateReported {
    bool anyTable = false;              // at least one table was sent
    std::optional<std::string> version; // the one known then
};
/// A round of questions has ended: the printer has been asked for everything, or the round was cut short.
struct QuestionsEnded {
    bool isComplete = false; // false if the interface could not be opened, no status came or a loader answered
};
/// The check before an update has ended without a question to the operator.
struct CheckFailed {
    enum class Reason { noAnswer };
    Reason reason = Reason::noAnswer;
};
/// The operator declined: what the alert asked for will not be done.
struct Declined {
    AlertKind question = AlertKind::other;
};
/// Another printer than the one whose update was begun is in its loader at that place: it gets no image by itself.
struct AnotherPrinterFound {
    std::string serialNumber; // of its device ID
};
/// The printer's version is not known: the engine makes it leave and return, and the update is over.
struct ReenumerationBegun {};
/// The printer did not report its IEEE 1284 device ID. It has no command queue.
struct IdentityMissing {};
/// An answer was missing or could not be the one to its question, and the pipe of the answers was emptied.
struct Resynchronized {};
/// A question got no answer, or none that could be its own, also after the pipe was emptied.
struct AnswersFailed {};
/// A printer was found whose device node may not be opened.
struct NotPermitted {
    std::string node;
};
/// A printer was found whose handle could not be made.
struct OpenFailed {
    std::string node;
    IOReturn code = kIOReturnSuccess;
};

} // namespace events

struct PrinterEvent {
    using What =
        std::variant<events::Arrived, events::Departed, events::Opened, events::CommandSent, events::WriteProgress,
                     events::ReplyRead, events::ReplyMissing, events::StatusRead, events::FirmwareVersionRead,
                     events::TableInfoRead, events::ProgressStored, events::TableBegun, events::ArchiveRefused,
                     events::UpdateReported, events::QuestionsEnded, events::CheckFailed, events::Declined,
                     events::AnotherPrinterFound, events::ReenumerationBegun, events::IdentityMissing,
                     events::Resynchronized, events::AnswersFailed, events::NotPermitted, events::OpenFailed>;

    std::string key;      // keyUSBdevice; empty if not known
    std::string location; // for example "1-2"; may be empty
    /// The token of the service that the printer object was made for; 0 if there is no object. A printer that leaves
    /// and returns gets another one, and each printer interface of a device has its own.
    std::uint32_t attachment = 0;
    What what;
};

class PrinterEventsOutlet {
  public:
    virtual ~PrinterEventsOutlet() = default;
    /// On whatever thread it happens; must return quickly and never call the engine.
    virtual void printerEvent(const PrinterEvent& event) = 0;
};

} // namespace zul
