// What one update has come to, as the printer's events report it: plain data and what follows from it. Any thread.
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

/// What became of the image.
enum class ImageState {
    notSent,
    sending,     // its bytes are on their way
    taken,       // the bus took all of it
    unconfirmed, // the write failed or the printer left before the bus reported its end
};

/// A command that brings the end nearer and that the bus did not take.
struct RefusedCommand {
    std::uint32_t command = 0; // command code
    IOReturn code = kIOReturnSuccess;

    /// The bus reported the end of the command's write only after the printer had left: it may have taken the command.
    /// Its departure and return show what came of it.
    bool isByDeparture() const { return code == kIOReturnNoDevice || code == kIOReturnNotResponding; }
};

struct PhaseTime {
    UpdatePhase phase = UpdatePhase::checking;
    Clock::Duration duration{0};
};

struct UpdateState {
    std::string key;
    std::uint32_t attachment = 0; // token of the printer's service; 0 if not known
    UpdatePhase phase = UpdatePhase::checking;
    Clock::TimePoint begun;            // the update
    Clock::TimePoint phaseBegun;       // this phase
    Clock::TimePoint lastSign;         // last byte of the image or a table, answer or bus event
    Clock::TimePoint lastProgress;     // last byte of the image or a table, or change of phase
    std::vector<PhaseTime> pastPhases; // in the order in which they were gone through
    std::uint32_t bytesDone = 0;       // of the frame that is being written
    std::uint32_t bytesTotal = 0;
    std::int64_t table = 0; // n of m
    std::int64_t tables = 0;
    std::string tableName;

    std::optional<std::string> previousVersion;
    std::optional<std::string> offeredVersion;
    std::optional<std::string> currentVersion; // the last one read; after the image only one read after it
    std::string rawStatus;                     // last status that came from this attachment

    bool isLoaderOrdered = false; // the command to enter the loader is being sent, or was
    ImageState image = ImageState::notSent;
    bool isWholeImageSent = false; // all its bytes were handed to the bus, whatever became of them
    int imagesSent = 0;
    std::int64_t tablesWritten = 0; // whose name and contents the bus both took
    bool isClearRefused = false;    // the bus did not take the command to clear the tables
    std::map<std::string, std::optional<std::string>> tableFacts; // as read back after the tables; nullopt: no answer

    std::optional<RefusedCommand> refused; // the last command that brings the end nearer, if it failed
    bool isRefusalAnswered = false;        // a round of questions has ended since
    std::optional<IOReturn> writeFailure;  // of the last write that failed since the update began
    std::optional<InterfaceHolder> holder; // another program holds the printer
    bool isAttached = true;
    bool isAnswerMissing = false;       // the last question was not answered
    bool isReadinessUnanswered = false; // the question whether the printer is ready was not answered
    bool isArchiveRefused = false;      // the files did not serve when they were needed
    bool isIdentityMissing = false;     // it did not report its device ID after a restart
    bool isReconnecting = false;        // this program made it leave and return
    bool isReported = false;            // the engine has come to the end and reports it
    bool anyTable = false;              // as the engine reported
    int roundsSinceReport = 0;          // rounds of questions that have ended after the report

    /// A program that ended now would leave the printer without working firmware or tables.
    bool mustNotBeStopped() const { return phaseRow(phase).mustNotBeStopped; }
    /// The printer has taken the order to enter its loader, or may have: the order is being sent, or was sent.
    bool mayBeOrdered() const;
    /// It answers, and something keeps it from being ready: an open cover, no paper, a head that cools down.
    bool isWaitingUntilReady() const;
    /// It answers where its loader was expected, with the status of a printer that works: its restart never happened,
    /// or another printer has taken its place.
    bool isNotInLoader() const;
    /// It takes no questions: another program holds it.
    bool isHeldElsewhere() const { return holder.has_value(); }
    /// It was cut off in the middle of the image and is back; its version will show whether it has taken the image.
    bool isImageInDoubt() const {
        return phase == UpdatePhase::restarted && image != ImageState::taken && !currentVersion;
    }
    /// The part of its way that the update has gone, from 0 to 1.
    double share() const;
};

} // namespace zul
