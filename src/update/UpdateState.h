// The state of one update, as the printer's events report it: plain data, and what can be derived from it.
// UpdateMonitor fills it in; the supervisor and the displays read copies. Any thread.
#pragma once

#include "platform/dispatch/Clock.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/PrinterReservations.h"
#include "update/UpdatePhase.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zul {

/// How far the firmware image has been sent.
enum class ImageState {
    notSent,
    sending,     // its bytes are being written
    taken,       // the bus reported the write of all bytes as successful
    unconfirmed, // the write failed or the printer left before the bus reported its end
};

/// The command to enter the loader, or the image, if the bus reported its write as failed.
struct RefusedCommand {
    std::uint32_t command = 0;        // command code
    IOReturn code = kIOReturnSuccess; // of the write

    /// The write failed because the printer had left: it may have taken the command before. Its departure and return
    /// show whether it did.
    bool isByDeparture() const { return code == kIOReturnNoDevice || code == kIOReturnNotResponding; }
};

/// A phase that is over, and how long it took.
struct PhaseTime {
    UpdatePhase phase = UpdatePhase::checking;
    Clock::Duration duration{0};
};

/// The state of one update.
struct UpdateState {
    std::string key;              // of the printer: keyUSBdevice
    std::uint32_t attachment = 0; // token of the printer's service; 0 if not known
    UpdatePhase phase = UpdatePhase::checking;
    Clock::TimePoint begun;            // of the update
    Clock::TimePoint phaseBegun;       // of this phase
    Clock::TimePoint lastSign;         // last sign of life: a byte of the image or a table, a reply or a bus event
    Clock::TimePoint lastProgress;     // last byte of the image or a table, or change of phase
    std::vector<PhaseTime> pastPhases; // the first one first
    std::uint32_t bytesDone = 0;       // of the frame with the image or a table that is being written
    std::uint32_t bytesTotal = 0;
    std::int64_t table = 0;  // number of the table that is being written, from 1; 0 before the first one
    std::int64_t tables = 0; // how many tables there are
    std::string tableName;   // its file name

    // Versions and status.
    std::optional<std::string> previousVersion; // firmware, before the update
    std::optional<std::string> availableVersion;  // firmware, in the archive
    std::optional<std::string> currentVersion;  // firmware, as read last; nullopt from the image to the next reading
    std::string rawStatus;                      // the last status that this attachment reported

    // What was sent.
    bool isLoaderOrdered = false; // the command to enter the loader is being sent, or was sent
    ImageState image = ImageState::notSent;
    bool isWholeImageSent = false; // all its bytes were handed to the bus, also if the write failed
    int imagesSent = 0;
    std::int64_t tablesWritten = 0; // tables whose name and contents were both written
    bool isClearRefused = false;    // the command to clear the tables was not written
    // Versions and checksums of tables as read back after writing, by key of deviceInfoDict; nullopt: no reply.
    std::map<std::string, std::optional<std::string>> tableReplies;

    // What went wrong.
    std::optional<RefusedCommand> refused; // set if the last loader command or image failed; reset by a new phase
    bool isRefusalAnswered = false;        // a round of queries has ended since
    std::optional<IOReturn> writeFailure;  // of the last write that failed since the update began
    std::optional<InterfaceHolder> holder; // the other process that holds the printer
    bool isAttached = true;
    bool isAnswerMissing = false;       // the last query got no reply
    bool isReadinessUnanswered = false; // the query whether the printer is ready got no reply
    bool isArchiveRefused = false;      // the firmware files could not be used when they were needed
    bool isIdentityMissing = false;     // it did not report its device ID after a restart
    std::string otherSerialNumber;      // of another printer that is in its loader at the place; empty if none is
    bool isReconnecting = false;        // this program makes it leave and return: its version was not known

    // The end.
    bool isReported = false;   // the engine has reported the end
    bool anyTable = false;     // the engine reported that at least one table was sent
    int roundsSinceReport = 0; // rounds of queries that have ended after the report

    /// A program that ended now would leave the printer without working firmware or tables.
    bool mustNotBeStopped() const { return phaseRow(phase).mustNotBeStopped; }
    /// The printer has taken the command to enter its loader, or may have: it is being sent, or was sent. False if its
    /// write failed while the printer stayed attached.
    bool mayBeOrdered() const;
    /// It replies, and its status keeps it from being ready: an open cover, no paper, a head that cools down.
    bool isWaitingUntilReady() const;
    /// It replies where its loader was expected, with the status of working firmware: it did not restart into its
    /// loader, or another printer is attached at its place.
    bool isNotInLoader() const;
    /// It cannot be queried, because another process holds it.
    bool isHeldElsewhere() const { return holder.has_value(); }
    /// The image was cut off and the printer is back; its version will show whether it has taken the image.
    bool isImageInDoubt() const {
        return phase == UpdatePhase::restarted && image != ImageState::taken && !currentVersion;
    }
    /// The completed share of the whole update, from 0 to 1.
    double share() const;
};

} // namespace zul
