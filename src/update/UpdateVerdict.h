// What an update came to, judged by facts. Any thread.
#pragma once

#include "update/UpdateState.h"

#include <map>
#include <optional>
#include <set>
#include <string>

namespace zul {

/// What an update came to.
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
    reconnected,    // its version was not known: it was made to leave and return
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
    std::optional<std::string> version;
    std::int64_t tables = 0;
    /// By key of deviceInfoDict: the versions that are right for this table.
    std::map<std::string, std::set<std::string>> tableVersions = {};
};

struct UpdateVerdict {
    UpdateResult result = UpdateResult::open;
    std::string reason;                         // for the operator; empty if there is nothing to explain
    std::optional<RefusedCommand> refused = {}; // the command that the bus did not take, for logs and JSON
    std::optional<InterfaceHolder> holder = {}; // busy: who uses the printer
    bool isCorrected = false;                   // an earlier verdict on the same update was another one
    bool isAfterOrder = false;                  // the printer had taken the order to enter its loader, or may have

    bool isOpen() const { return result == UpdateResult::open; }
    bool isSuccess() const { return result == UpdateResult::succeeded || result == UpdateResult::upToDate; }
    /// The printer is as it was before.
    bool isUntouched() const { return !isOpen() && result != UpdateResult::succeeded && !isAfterOrder; }
};

/// The printer has the whole image. A write that failed may have been taken all the same, if the printer left before
/// the end of it was reported; the version is a proof of that only where it has changed.
bool isImageTaken(const UpdateState& state);

/// Judges an update that the engine has reported: the version read afterwards, the tables that were sent and what the
/// printer reports of them, whether the tables were cleared, and whether the image was taken, in this order.
UpdateResult judgeByFacts(const UpdateState& state, const UpdateExpectation& expectation);

/// Only answers are missing: the printer should be asked once more before it is judged.
bool lacksAnswersOnly(const UpdateState& state, const UpdateExpectation& expectation);

/// Whether something is known now that was not when the update was judged: an answer, or what became of a command. An
/// answer that is missing is none.
bool hasOtherFacts(const UpdateState& state, const UpdateState& judged);

/// Key of the first table whose reported version is not the one that was sent; empty if there is none.
std::string differingTable(const UpdateState& state, const UpdateExpectation& expectation);

/// Expectations for a product: file is the list of its archive row, firmware file first.
UpdateExpectation expectationFor(std::uint16_t productID);

/// Whether a text has the form of a table's version: four digits.
bool isTableVersion(const std::string& text);

/// The name of a result in JSON and in the history; never translated.
const char* nameOfResult(UpdateResult result);

} // namespace zul
