// The verdict on an update, from what the printer and the bus reported. Pure functions over plain data, any thread.
#pragma once

#include "platform/usb/PrinterReservations.h"
#include "update/UpdateState.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace zul {

/// The result of an update.
enum class UpdateResult {
    open, // not known yet
    succeeded,
    // Usually before anything was sent.
    upToDate,       // the same versions are installed already
    newerInstalled, // the installed firmware is newer than the available one
    declined,       // by the operator
    busy,           // another program uses the printer
    notReady,       // the printer's status keeps it from being updated
    unanswered,     // the printer did not answer
    notOpened,      // the printer's interface could not be opened
    badFiles,       // firmware files are missing or damaged
    cannotFollow,   // arrivals and departures of printers are not reported on this machine
    left,           // the printer left before its update began
    reconnected,    // its version was not known, so this program made it leave and return
    // Usually after something was sent.
    commandRefused, // the printer did not take the command to enter its loader
    imageNotTaken,  // the printer is in its loader and does not have the image
    identityLost,   // it restarted and does not report its device ID: its tables were not written
    versionUnread,  // it did not report its version after the update
    otherVersion,   // it reports another version than the available one
    tablesMissing,  // not all tables were sent
    tablesDiffer,   // it reports other tables than those that were sent
    clearRefused,   // it did not take the command to clear its tables
    notBack,        // it did not come back, stopped answering, or another printer is at its place
    stopped,        // the program was asked to end
};

/// What the printer should report after the update.
struct UpdateExpectation {
    std::optional<std::string> version; // of the firmware; nullopt for an unknown product
    std::int64_t tables = 0;            // number of color tables
    /// The correct versions of each table, by key of deviceInfoDict.
    std::map<std::string, std::set<std::string>> tableVersions = {};
};

/// The result of an update with its reason.
struct UpdateVerdict {
    UpdateResult result = UpdateResult::open;
    std::string reason;                         // for the operator; empty if no reason is needed
    std::optional<RefusedCommand> refused = {}; // the command whose write failed, for logs and JSON
    std::optional<InterfaceHolder> holder = {}; // for busy: the process that uses the printer
    bool isCorrected = false;                   // replaces an earlier verdict on the same update
    bool isAfterOrder = false;                  // the printer has taken the command to enter its loader, or may have

    /// The update has not ended.
    bool isOpen() const { return result == UpdateResult::open; }
    /// The printer has the available versions, whether this update wrote them or not.
    bool isSuccess() const { return result == UpdateResult::succeeded || result == UpdateResult::upToDate; }
    /// The update has ended without a change in the printer.
    bool isUntouched() const { return !isOpen() && result != UpdateResult::succeeded && !isAfterOrder; }
};

/// The printer has the whole image. It may have it although the write was reported as failed, if it left before the end
/// of the write was reported. That is proved by the available version if the printer had another version before, or if
/// all bytes were handed to the bus.
bool isImageTaken(const UpdateState& state);

/// Judges an update that the engine has reported: the version read afterwards, the tables that were sent and what the
/// printer reports of them, whether the tables were cleared, and whether the image was taken, in this order.
UpdateResult judgeByReplies(const UpdateState& state, const UpdateExpectation& expectation);

/// Only replies are missing for a success: the printer should be queried once more before the update is judged.
bool lacksAnswersOnly(const UpdateState& state, const UpdateExpectation& expectation);

/// Whether something is known now that was not known when the update was judged: a reply, or the result of a command. A
/// table without a valid reply is not compared.
bool hasOtherReplies(const UpdateState& state, const UpdateState& judged);

/// Key of the first table whose reported version is not the one that was sent; empty if there is none.
std::string differingTable(const UpdateState& state, const UpdateExpectation& expectation);

/// What a printer with this USB product ID should report, from the file names in the product table. An unknown product
/// has an empty expectation.
UpdateExpectation expectationFor(std::uint16_t productID);

/// Whether a text has the form of a table version: four digits.
bool isTableVersion(const std::string& text);

/// The name of a result in JSON and in the history; never translated.
const char* nameOfResult(UpdateResult result);

} // namespace zul
