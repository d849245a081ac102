// From events to phases, and from phases to words.
#include "Classes/UpdateMonitor.h"

#include "Classes/CommandFrame.h"
#include "Classes/StatusTexts.h"
#include "Classes/TBUSBPrinterZUL.h"
#include "StatusCodeNames.h"
#include "platform/foundation/Format.h"

#include <array>

namespace zul {

namespace {

using std::chrono::seconds;

struct PhaseFacts {
    const char* name;
    const char* words;
    int expectedSeconds; // 0: cannot be told
};

// In the order of the phases.
constexpr auto kPhases = std::to_array<PhaseFacts>({
    {"checking", "checking", 0},
    {"entering loader", "sent to the loader", 10},
    {"restarting", "restarting into the loader", 30},
    {"in the loader", "in the loader", 30},
    {"writing", "writing the firmware", 10},
    {"programming", "programming its flash", 90},
    {"restarting", "restarting into the new firmware", 60},
    {"restarted", "back, waiting until it is idle", 30},
    {"color tables", "writing color tables", 60},
    {"done", "done", 0},
});
static_assert(kPhases.size() == static_cast<std::size_t>(UpdatePhase::done) + 1);

const PhaseFacts& factsOf(UpdatePhase phase) {
    return kPhases[static_cast<std::size_t>(phase)];
}

long long wholeSeconds(Clock::Duration span) {
    return std::chrono::duration_cast<seconds>(span).count();
}

} // namespace

const char* nameOfPhase(UpdatePhase phase) {
    return factsOf(phase).name;
}

std::optional<Clock::Duration> expectedDuration(UpdatePhase phase) {
    const int expected = factsOf(phase).expectedSeconds;
    return expected == 0 ? std::nullopt : std::optional<Clock::Duration>(seconds(expected));
}

bool UpdateState::hasSucceeded() const {
    return isFinished && reasonOfFailure(*this).empty();
}

// ---- words ----------------------------------------------------------------------------------------------------------

std::string describeState(const UpdateState& state, Clock::TimePoint now) {
    std::string text = factsOf(state.phase).words;
    if (state.isBackInLoader) text = "back in firmware update mode";
    if (state.phase == UpdatePhase::writing && state.bytesTotal > 0) {
        const unsigned percent = static_cast<unsigned>(100ULL * state.bytesDone / state.bytesTotal);
        text += formatted(" %u of %u bytes (%u %%)", state.bytesDone, state.bytesTotal, percent);
    }
    if (state.phase == UpdatePhase::colorTables) text += formatted(" %d of %d", state.table, state.tables);
    if (state.phase == UpdatePhase::restarted && !state.rawStatus.empty() && state.rawStatus != kReadyStatus) {
        text += " (" + textForStatus(state.rawStatus) + ")";
    }
    text += formatted(" since %d s", wholeSeconds(now - state.phaseBegun));
    if (const auto expected = expectedDuration(state.phase)) {
        text += formatted(", expected within %d s", wholeSeconds(*expected));
    }
    return text;
}

std::string adviceForStall(const UpdateState& state) {
    if (state.isBackInLoader) {
        return "The printer is still in firmware update mode. Leave it switched on and start the update again.";
    }
    switch (state.phase) {
    case UpdatePhase::checking:
        return "The printer does not answer. Nothing has been changed in it. Switch it off and on, then start again.";
    case UpdatePhase::enteringLoader:
        return "The printer was told to restart and has not left yet. Leave it switched on. If nothing happens, switch "
               "it off and on, then start the update again.";
    case UpdatePhase::loaderGone:
        return "The printer has not come back as its loader. Leave it switched on and check the USB cable. If it stays "
               "away, switch it off and on: the update goes on when it appears.";
    case UpdatePhase::loaderBack:
    case UpdatePhase::writing:
        return "The printer is in firmware update mode and does not take the firmware. Leave it switched on. If "
               "nothing "
               "happens, switch it off and on and start the update again.";
    case UpdatePhase::programming:
        return "The printer has the firmware and has not restarted yet. Leave it switched on.";
    case UpdatePhase::restarting:
        return "The printer has not come back with the new firmware. Leave it switched on and check the USB cable. If "
               "it stays away, switch it off and on: the update goes on when it appears.";
    case UpdatePhase::restarted:
    case UpdatePhase::colorTables:
        return "The printer has new firmware and does not answer. Its color tables are not complete yet. Leave it "
               "switched on. If nothing happens, switch it off and on: the update goes on when it appears.";
    case UpdatePhase::done:
        return "";
    }
    return "";
}

std::string reasonOfFailure(const UpdateState& state) {
    if (!state.currentVersion) return "the version could not be read after the update";
    if (state.currentVersion != state.offeredVersion) {
        return formatted("the printer reports %s after the update instead of %s", *state.currentVersion,
                         textOrNull(state.offeredVersion));
    }
    if (state.tablesWritten < state.tables) {
        std::string text = formatted("only %d of %d color tables were sent", state.tablesWritten, state.tables);
        if (state.failure) text += formatted(" (%s)", strForIOReturn(*state.failure));
        return text;
    }
    return state.anyTable ? "" : "no color table was sent";
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
    if (state.phase == phase) return;
    state.phase = phase;
    state.phaseBegun = _clock.now();
}

// False for what tells nothing about the printer.
bool UpdateMonitor::apply(UpdateState& state, const PrinterEvent& event) {
    using Kind = PrinterEvent::Kind;
    switch (event.kind) {
    case Kind::replyMissing:
    case Kind::opened:
    case Kind::notPermitted:
    case Kind::openFailed:
        return false; // no sign of life
    case Kind::arrived:
        state.isAttached = true;
        if (state.phase == UpdatePhase::loaderGone) enter(state, UpdatePhase::loaderBack);
        if (state.phase == UpdatePhase::restarting) enter(state, UpdatePhase::restarted);
        break;
    case Kind::departed:
        applyDeparture(state);
        break;
    case Kind::writeProgress:
        // Questions are written too; only the image and the tables bring the end nearer.
        if (state.phase != UpdatePhase::writing && state.phase != UpdatePhase::colorTables) break;
        state.bytesDone = event.bytesDone;
        state.bytesTotal = event.bytesTotal;
        state.lastProgress = _clock.now();
        break;
    case Kind::commandSent:
        applyCommand(state, event);
        break;
    case Kind::progressValue:
        // Stored just before the image goes out; the bytes follow.
        if (event.value != static_cast<std::int64_t>(UpdateProgress::waitingForFirmware)) return false;
        state.bytesDone = state.bytesTotal = 0;
        state.isBackInLoader = false;
        state.currentVersion = std::nullopt; // the version that counts is the one read behind the image
        enter(state, UpdatePhase::writing);
        break;
    case Kind::replyRead:
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
        break;
    case Kind::finished:
        enter(state, UpdatePhase::done);
        state.isFinished = true;
        state.anyTable = event.value != 0;
        break;
    }
    state.lastSign = _clock.now();
    return true;
}

void UpdateMonitor::applyDeparture(UpdateState& state) {
    state.isAttached = false;
    state.rawStatus.clear(); // of the one that left
    state.isBackInLoader = false;
    if (state.phase == UpdatePhase::enteringLoader || state.phase == UpdatePhase::loaderBack) {
        enter(state, UpdatePhase::loaderGone);
    } else if (state.phase > UpdatePhase::loaderBack && !state.isFinished) {
        enter(state, UpdatePhase::restarting);
    }
}

void UpdateMonitor::applyCommand(UpdateState& state, const PrinterEvent& event) {
    const bool written = event.code == kIOReturnSuccess;
    if (!written) state.failure = event.code;
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
