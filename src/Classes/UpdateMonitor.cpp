// From events to phases.
#include "Classes/UpdateMonitor.h"

#include "Classes/CommandFrame.h"
#include "Classes/StatusTexts.h"
#include "Classes/TBUSBPrinterZUL.h"

namespace zul {

namespace {

constexpr std::uint32_t kLongestQuestion = 256; // bytes of a frame: commands with a small payload

} // namespace

bool UpdateState::hasSucceeded() const {
    return isFinished && shortfall() == UpdateShortfall::none;
}

bool UpdateState::isWaitingUntilReady() const {
    const bool isAsked =
        phase == UpdatePhase::checking || phase == UpdatePhase::restarted || phase == UpdatePhase::colorTables;
    // The engine compares what is shown, too: several codes read "Idle".
    return isAsked && !isRefused && !isAnswerMissing && !rawStatus.empty() && rawStatus != kLoaderStatus &&
           textForStatus(rawStatus) != textForStatus(kReadyStatus);
}

UpdateShortfall UpdateState::shortfall() const {
    if (isArchiveRefused) return UpdateShortfall::archiveRefused;
    if (!isImageTaken) return UpdateShortfall::imageNotTaken;
    if (!currentVersion) return UpdateShortfall::versionUnread;
    if (currentVersion != offeredVersion) return UpdateShortfall::otherVersion;
    if (tablesWritten < tables) return UpdateShortfall::tablesMissing;
    return anyTable ? UpdateShortfall::none : UpdateShortfall::noTable;
}

// ---- events ---------------------------------------------------------------------------------------------------------

UpdateMonitor::UpdateMonitor(Clock& clock, std::function<void(const std::string& key)> changed)
    : _clock(clock), _changed(std::move(changed)) {}

void UpdateMonitor::beginUpdate(const std::string& key, std::optional<std::string> installed,
                                std::optional<std::string> offered, std::int64_t tables) {
    UpdateState state;
    state.key = key;
    state.begun = state.phaseBegun = state.lastSign = state.lastProgress = _clock.now();
    state.previousVersion = std::move(installed);
    state.offeredVersion = std::move(offered);
    state.tables = tables;
    const std::scoped_lock lock(_mutex);
    _states[key] = std::move(state);
}

void UpdateMonitor::setOffer(const std::string& key, std::optional<std::string> offered, std::int64_t tables) {
    const std::scoped_lock lock(_mutex);
    const auto found = _states.find(key);
    if (found == _states.end()) return;
    found->second.offeredVersion = std::move(offered);
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

void UpdateMonitor::printerEvent(const PrinterEvent& event) {
    {
        const std::scoped_lock lock(_mutex);
        const auto found = _states.find(event.key);
        if (found == _states.end() || !apply(found->second, event)) return;
    }
    if (_changed) _changed(event.key);
}

void UpdateMonitor::enter(UpdateState& state, UpdatePhase phase) {
    state.lastProgress = _clock.now();
    state.isRefused = false;
    if (state.phase == phase) return;
    state.phase = phase;
    state.phaseBegun = _clock.now();
}

// A question that is sent says nothing about the printer: one that is mute is asked again and again. Its answer does,
// and so does what brings the end nearer.
bool UpdateMonitor::isSignOfLife(const PrinterEvent& event) {
    switch (event.kind) {
    case PrinterEvent::Kind::writeProgress:
        return event.bytesTotal > kLongestQuestion;
    case PrinterEvent::Kind::commandSent:
        return event.code == kIOReturnSuccess &&
               (event.command == kCommandEnterLoader || event.payloadLength > kLongestQuestion);
    case PrinterEvent::Kind::status:
    case PrinterEvent::Kind::firmwareVersion:
        return event.text.has_value(); // nothing came of the question
    default:
        return true;
    }
}

// False for what tells nothing about the update.
bool UpdateMonitor::apply(UpdateState& state, const PrinterEvent& event) {
    using Kind = PrinterEvent::Kind;
    switch (event.kind) {
    case Kind::replyMissing:
        state.isAnswerMissing = true;
        return false; // no sign of life
    case Kind::opened:
    case Kind::notPermitted:
    case Kind::openFailed:
        return false;
    case Kind::archiveRefused:
        state.isArchiveRefused = true;
        break;
    case Kind::arrived:
        state.isAttached = true;
        if (state.phase == UpdatePhase::loaderGone) enter(state, UpdatePhase::loaderBack);
        if (state.phase == UpdatePhase::restarting) enter(state, UpdatePhase::restarted);
        break;
    case Kind::departed:
        applyDeparture(state);
        break;
    case Kind::writeProgress:
        applyBytes(state, event);
        break;
    case Kind::commandSent:
        applyCommand(state, event);
        break;
    case Kind::progressValue:
        if (event.value != static_cast<std::int64_t>(UpdateProgress::waitingForFirmware)) return false;
        beginImage(state);
        break;
    case Kind::replyRead:
        state.isAnswerMissing = false;
        break;
    case Kind::status:
        applyStatus(state, event);
        break;
    case Kind::firmwareVersion:
        state.currentVersion = event.text;
        break;
    case Kind::colorTable:
        enter(state, UpdatePhase::colorTables);
        if (event.value == 1) state.tablesWritten = 0; // they are all written anew
        state.table = event.value;
        state.tables = event.total;
        state.tableName = event.text.value_or("");
        state.bytesDone = state.bytesTotal = 0; // of the frame before
        break;
    case Kind::finished:
        enter(state, UpdatePhase::done);
        state.isFinished = true;
        state.anyTable = event.value != 0;
        break;
    }
    if (isSignOfLife(event)) state.lastSign = _clock.now();
    return true;
}

// Questions are written too; only the image and the tables bring the end nearer.
void UpdateMonitor::applyBytes(UpdateState& state, const PrinterEvent& event) {
    if (event.bytesTotal <= kLongestQuestion) return;
    if (state.phase != UpdatePhase::writing && state.phase != UpdatePhase::colorTables) return;
    state.bytesDone = event.bytesDone;
    state.bytesTotal = event.bytesTotal;
    state.lastProgress = _clock.now();
}

// The progress is stored just before the image goes out; the bytes follow.
void UpdateMonitor::beginImage(UpdateState& state) {
    state.bytesDone = state.bytesTotal = 0;
    state.isBackInLoader = state.isImageTaken = state.isArchiveRefused = false;
    state.currentVersion = std::nullopt; // the version that counts is the one read behind the image
    enter(state, UpdatePhase::writing);
}

void UpdateMonitor::applyDeparture(UpdateState& state) {
    state.isAttached = false;
    state.rawStatus.clear(); // of the one that left
    state.isBackInLoader = state.isRefused = state.isAnswerMissing = false;
    if (state.phase == UpdatePhase::enteringLoader || state.phase == UpdatePhase::loaderBack) {
        enter(state, UpdatePhase::loaderGone);
    } else if (state.phase > UpdatePhase::loaderBack && !state.isFinished) {
        enter(state, UpdatePhase::restarting);
    }
}

void UpdateMonitor::applyCommand(UpdateState& state, const PrinterEvent& event) {
    const bool written = event.code == kIOReturnSuccess;
    if (!written) state.failure = event.code;
    if (event.command == kCommandEnterLoader || event.command == kCommandProgramFlash) state.isRefused = !written;
    if (event.command == kCommandProgramFlash) state.isImageTaken = written;
    if (event.command == kCommandEnterLoader && written) enter(state, UpdatePhase::enteringLoader);
    if (event.command == kCommandProgramFlash && written) enter(state, UpdatePhase::programming);
    // A table counts when its contents went out behind its name: the name's failure spoils both.
    if (event.command == kCommandTableName) _nameWritten[state.key] = written;
    if (event.command == kCommandTableWrite && written && event.payloadLength > 0 && _nameWritten[state.key]) {
        ++state.tablesWritten;
    }
}

void UpdateMonitor::applyStatus(UpdateState& state, const PrinterEvent& event) {
    state.rawStatus = event.text.value_or("");
    // Before the image the loader is where it should be; after the restart it means that the image was not taken.
    if (state.phase == UpdatePhase::restarted) state.isBackInLoader = state.rawStatus == kLoaderStatus;
}

} // namespace zul
