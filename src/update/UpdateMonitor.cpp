// Turns the engine's events into the state of each update. Events come on the printers' command queues and on the main
// queue. The supervisor owns the monitor, passes the events on to it and reads the states on the main queue.
#include "update/UpdateMonitor.h"

#include "Classes/FirmwareUpdate.h"
#include "Classes/PrinterEvents.h"
#include "platform/dispatch/Clock.h"
#include "platform/usb/IOReturn.h"
#include "platform/usb/PrinterReservations.h"
#include "protocol/CommandFrame.h"
#include "protocol/StatusTexts.h"
#include "update/UpdatePhase.h"
#include "update/UpdateState.h"
#include "update/UpdateVerdict.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

namespace zul {

namespace {

constexpr std::uint32_t kLongestQuestion = 256; // bytes of a frame: commands with a small payload

} // namespace

// Applies one event to one update. Each overload returns whether the event changes the update.
struct UpdateMonitor::Visitor {
    UpdateState& state;
    bool& nameWritten;
    const PrinterEvent& event;
    Clock::TimePoint now;

    // ---- attachment -------------------------------------------------------------------------------------------------

    bool operator()(const events::Arrived&) {
        state.attachment = event.attachment;
        state.isAttached = true;
        // A return in any other phase is no step of the update, for example a reconnection before it.
        if (state.phase == UpdatePhase::loaderAway) enter(UpdatePhase::loaderBack);
        // The version shows whether the printer has taken an image that was cut off.
        if (state.phase == UpdatePhase::restarting || state.phase == UpdatePhase::cutOff) enter(UpdatePhase::restarted);
        return sign();
    }

    bool operator()(const events::Departed&) {
        state.isAttached = false;
        state.rawStatus.clear(); // of the attachment that has ended
        state.refused.reset();
        state.holder.reset();
        state.isAnswerMissing = state.isIdentityMissing = false;
        state.otherSerialNumber.clear();
        state.isArchiveRefused = false; // the files are read again when it is back
        switch (state.phase) {
        case UpdatePhase::done:
            break;
        case UpdatePhase::checking:
            // The printer may leave before the bus reports the end of the command's write.
            if (state.isLoaderOrdered) enter(UpdatePhase::loaderAway);
            break;
        case UpdatePhase::enteringLoader:
        case UpdatePhase::loaderAway:
        case UpdatePhase::loaderBack:
            enter(UpdatePhase::loaderAway);
            break;
        case UpdatePhase::writing:
            state.image = ImageState::unconfirmed;
            enter(UpdatePhase::cutOff);
            break;
        default:
            enter(state.image == ImageState::taken ? UpdatePhase::restarting : UpdatePhase::cutOff);
            break;
        }
        return sign();
    }

    bool operator()(const events::Opened& opened) {
        const auto before = state.holder;
        state.holder.reset();
        if (opened.code == kIOReturnExclusiveAccess) state.holder = opened.holder.value_or(InterfaceHolder{});
        return state.holder != before; // not a sign of life: an open sends no query
    }

    bool operator()(const events::AnotherPrinterFound& found) {
        state.otherSerialNumber = found.serialNumber;
        return true;
    }

    bool operator()(const events::IdentityMissing&) { return state.isIdentityMissing = true; }
    bool operator()(const events::ReenumerationBegun&) { return state.isReconnecting = true; }

    // ---- commands ---------------------------------------------------------------------------------------------------

    bool operator()(const events::CommandSent& sent) {
        const bool isTaken = sent.code == kIOReturnSuccess;
        if (!isTaken) state.writeFailure = sent.code;
        switch (sent.command) {
        case kCommandEnterLoader:
            if (state.phase != UpdatePhase::checking) break; // it has left already
            setRefused(sent);
            if (isTaken) enter(UpdatePhase::enteringLoader);
            break;
        case kCommandProgramFlash:
            applyImage(sent);
            break;
        case kCommandTableClear:
            state.isClearRefused = !isTaken;
            break;
        case kCommandTableName:
            nameWritten = isTaken;
            break;
        case kCommandTableWrite:
            // Count it only if its name was written before its contents: without the name the contents are lost.
            if (isTaken && sent.payloadLength > 0 && nameWritten) ++state.tablesWritten;
            break;
        default:
            break;
        }
        // A sent query is not a sign of life; a reply, a bus event or written bytes of the image or a table are.
        const bool bringsTheEndNearer =
            sent.command == kCommandEnterLoader || sent.payloadLength + kFrameHeaderSize > kLongestQuestion;
        return isTaken && bringsTheEndNearer ? sign() : true;
    }

    void applyImage(const events::CommandSent& sent) {
        const bool isTaken = sent.code == kIOReturnSuccess;
        state.image = isTaken ? ImageState::taken : ImageState::unconfirmed;
        // The printer may have left before the bus reported the end of the write.
        if (isTaken && state.phase == UpdatePhase::cutOff) enter(UpdatePhase::restarting);
        if (state.phase != UpdatePhase::writing) return;
        setRefused(sent);
        if (isTaken) enter(UpdatePhase::programming);
    }

    void setRefused(const events::CommandSent& sent) {
        state.refused.reset();
        state.isRefusalAnswered = false;
        if (sent.code != kIOReturnSuccess) state.refused = RefusedCommand{sent.command, sent.code};
    }

    // A written query is not progress; written bytes of the image or a table are.
    bool operator()(const events::WriteProgress& progress) {
        if (progress.bytesTotal <= kLongestQuestion) return false;
        if (state.phase != UpdatePhase::writing && state.phase != UpdatePhase::colorTables) return false;
        state.bytesDone = progress.bytesDone;
        state.bytesTotal = progress.bytesTotal;
        if (state.phase == UpdatePhase::writing) state.isWholeImageSent = state.bytesDone == state.bytesTotal;
        state.lastProgress = now;
        return sign();
    }

    // ---- answers ----------------------------------------------------------------------------------------------------

    bool operator()(const events::ReplyRead&) {
        state.isAnswerMissing = false;
        return sign();
    }

    bool operator()(const events::ReplyMissing&) { return state.isAnswerMissing = true; }

    bool operator()(const events::StatusRead& status) {
        // A status that is not text shows neither the loader nor an obstacle.
        if (!status.rawStatus) return false;
        state.rawStatus = *status.rawStatus;
        const bool isLoader = state.rawStatus == kLoaderStatus;
        // Before the image the loader's status is expected. After the restart it means that the image was not taken.
        if (state.phase == UpdatePhase::restarted && isLoader) {
            state.image = ImageState::unconfirmed;
            enter(UpdatePhase::backInLoader);
        }
        if (state.phase == UpdatePhase::backInLoader && !isLoader) enter(UpdatePhase::restarted);
        return sign();
    }

    bool operator()(const events::FirmwareVersionRead& read) {
        if (!read.version) return false;
        state.currentVersion = read.version;
        // Only a version that is read before the first command is the previous one.
        const bool isBefore = state.phase == UpdatePhase::checking;
        if (isBefore && !state.previousVersion) state.previousVersion = read.version;
        return sign();
    }

    bool operator()(const events::TableInfoRead& read) {
        if (state.tablesWritten == 0) return true;
        std::optional<std::string>& known = state.tableReplies[read.key];
        // After the report no table is written any more, so an earlier reply stays valid until the next one.
        const bool isAnswer = read.value && isTableVersion(*read.value);
        if (isAnswer || !known || !state.isReported) known = read.value;
        return true;
    }

    bool operator()(const events::QuestionsEnded&) {
        if (state.isReported) ++state.roundsSinceReport;
        if (state.refused) state.isRefusalAnswered = true;
        return true;
    }

    bool operator()(const events::OrderFailed&) { return state.isOrderFailed = true; }
    bool operator()(const events::CheckFailed&) { return state.isReadinessUnanswered = true; }

    // ---- the course -------------------------------------------------------------------------------------------------

    // The progress is stored just before the command that makes the printer leave.
    bool operator()(const events::ProgressStored& progress) {
        if (progress.value == static_cast<std::int64_t>(UpdateProgress::waitingForLoader)) {
            return state.isLoaderOrdered = true;
        }
        if (progress.value != static_cast<std::int64_t>(UpdateProgress::waitingForFirmware)) return false;
        state.bytesDone = state.bytesTotal = 0;
        state.image = ImageState::sending;
        state.isWholeImageSent = false;
        ++state.imagesSent;
        state.isArchiveRefused = state.isClearRefused = state.isReported = false;
        state.currentVersion.reset(); // only a version that is read after the image is used
        state.tableReplies.clear();
        state.refused.reset();
        enter(UpdatePhase::writing);
        return sign();
    }

    bool operator()(const events::TableBegun& table) {
        enter(UpdatePhase::colorTables);
        // Only a printer that was sent an image gets tables: it was sent before this update was followed. The version
        // shows whether it was taken.
        if (state.image == ImageState::notSent) {
            state.image = ImageState::unconfirmed;
            state.isWholeImageSent = true;
        }
        if (table.number == 1) { // all tables are written again
            state.tablesWritten = 0;
            state.tableReplies.clear();
        }
        state.table = table.number;
        state.tables = table.total;
        state.tableName = table.name;
        state.bytesDone = state.bytesTotal = 0;
        state.lastProgress = now;
        return sign();
    }

    bool operator()(const events::ArchiveRefused&) { return state.isArchiveRefused = true; }

    bool operator()(const events::UpdateReported& report) {
        enter(UpdatePhase::done);
        state.isReported = true;
        state.roundsSinceReport = 0;
        state.anyTable = report.anyTable;
        return sign();
    }

    // These do not change the state of an update. noteAttachment(), the supervisor and other observers handle them.
    bool operator()(const events::Resynchronized&) { return false; }
    bool operator()(const events::AnswersFailed&) { return false; }
    bool operator()(const events::Declined&) { return false; }
    bool operator()(const events::NotPermitted&) { return false; }
    bool operator()(const events::OpenFailed&) { return false; }

    // Progress, also if the phase is the current one already.
    void enter(UpdatePhase phase) {
        state.lastProgress = now;
        state.refused.reset();
        if (state.phase == phase) return;
        state.pastPhases.push_back({state.phase, now - state.phaseBegun});
        state.phase = phase;
        state.phaseBegun = now;
    }

    // Notes a sign of life. Always true: it is a change.
    bool sign() {
        state.lastSign = now;
        return true;
    }
};

UpdateMonitor::UpdateMonitor(Clock& clock, std::function<void(const std::string& key)> changed)
    : _clock(clock), _changed(std::move(changed)) {}

void UpdateMonitor::beginUpdate(const UpdateBeginning& beginning) {
    UpdateState state;
    state.key = beginning.key;
    state.attachment = beginning.attachment;
    state.begun = state.phaseBegun = state.lastSign = state.lastProgress = _clock.now();
    state.previousVersion = beginning.installedVersion;
    state.currentVersion = beginning.installedVersion;
    state.availableVersion = beginning.availableVersion;
    state.tables = beginning.tables;
    state.isIdentityMissing = isIdentityMissing(beginning.key);
    const std::scoped_lock lock(_mutex);
    _states[beginning.key] = std::move(state);
}

void UpdateMonitor::setAvailable(const std::string& key, std::optional<std::string> available, std::int64_t tables) {
    const std::scoped_lock lock(_mutex);
    const auto found = _states.find(key);
    if (found == _states.end()) return;
    found->second.availableVersion = std::move(available);
    found->second.tables = tables;
}

void UpdateMonitor::touch(const std::string& key) {
    const std::scoped_lock lock(_mutex);
    const auto found = _states.find(key);
    if (found != _states.end()) found->second.lastSign = found->second.lastProgress = _clock.now();
}

void UpdateMonitor::endUpdate(const std::string& key) {
    const std::scoped_lock lock(_mutex);
    _states.erase(key);
}

std::optional<UpdateState> UpdateMonitor::state(const std::string& key) const {
    const std::scoped_lock lock(_mutex);
    const auto found = _states.find(key);
    return found == _states.end() ? std::nullopt : std::optional(found->second);
}

UpdateMonitor::Attachment UpdateMonitor::attachment(const std::string& key) const {
    const std::scoped_lock lock(_mutex);
    const auto found = _attachments.find(key);
    return found == _attachments.end() ? Attachment{} : found->second;
}

bool UpdateMonitor::hasReportedStatus(const std::string& key) const {
    return attachment(key).hasReportedStatus;
}

std::optional<InterfaceHolder> UpdateMonitor::holder(const std::string& key) const {
    return attachment(key).holder;
}

bool UpdateMonitor::isNotAnswering(const std::string& key) const {
    return attachment(key).isNotAnswering;
}

bool UpdateMonitor::isIdentityMissing(const std::string& key) const {
    return attachment(key).isIdentityMissing;
}

bool UpdateMonitor::wasAskedForAll(const std::string& key) const {
    return attachment(key).wasAskedForAll;
}

std::vector<std::string> UpdateMonitor::attachedKeys() const {
    const std::scoped_lock lock(_mutex);
    std::vector<std::string> keys;
    for (const auto& [key, attachment] : _attachments) keys.push_back(key);
    return keys;
}

void UpdateMonitor::noteAttachment(const PrinterEvent& event) {
    if (event.key.empty()) return;
    Attachment& attachment = _attachments[event.key];
    if (std::holds_alternative<events::Arrived>(event.what)) attachment = {event.attachment};
    if (const auto* const opened = std::get_if<events::Opened>(&event.what)) {
        attachment.holder.reset();
        if (opened->code == kIOReturnExclusiveAccess) attachment.holder = opened->holder.value_or(InterfaceHolder{});
    }
    if (std::holds_alternative<events::AnswersFailed>(event.what)) {
        attachment.isNotAnswering = attachment.hasFailedInRound = true;
    }
    if (const auto* const ended = std::get_if<events::QuestionsEnded>(&event.what)) {
        attachment.isNotAnswering = std::exchange(attachment.hasFailedInRound, false);
        if (ended->isComplete && event.attachment == attachment.token) attachment.wasAskedForAll = true;
    }
    if (std::holds_alternative<events::IdentityMissing>(event.what)) attachment.isIdentityMissing = true;
    const bool isStatus = std::holds_alternative<events::StatusRead>(event.what);
    if (isStatus && event.attachment == attachment.token) attachment.hasReportedStatus = true;
    if (std::holds_alternative<events::Departed>(event.what) && event.attachment == attachment.token) {
        _attachments.erase(event.key);
    }
}

// A device may have two printer interfaces, which have two printer objects with one key; an update belongs to one of
// them. And the object from before a restart may still report the end of its last queries. Only the end of the image is
// used from any object: the one that sent it may have left meanwhile.
bool UpdateMonitor::isOfAnotherAttachment(const UpdateState& state, const PrinterEvent& event) {
    if (event.attachment == 0 || state.attachment == 0 || event.attachment == state.attachment) return false;
    if (std::holds_alternative<events::Arrived>(event.what)) return state.isAttached;
    const auto* const sent = std::get_if<events::CommandSent>(&event.what);
    return sent == nullptr || sent->command != kCommandProgramFlash;
}

void UpdateMonitor::printerEvent(const PrinterEvent& event) {
    {
        const std::scoped_lock lock(_mutex);
        noteAttachment(event);
        const auto found = _states.find(event.key);
        // Attachments are followed for all printers, phases only for those in an update.
        if (found == _states.end() || isOfAnotherAttachment(found->second, event)) return;
        if (!std::visit(Visitor{found->second, _nameWritten[event.key], event, _clock.now()}, event.what)) return;
    }
    // Without the lock: the receiver may ask for the state at once.
    if (_changed) _changed(event.key);
}

} // namespace zul
