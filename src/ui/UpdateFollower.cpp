#include "ui/UpdateFollower.h"

#include "Classes/UpdateWords.h"
#include "platform/foundation/LocalizedFormat.h"
#include "ui/Texts.h"

#include <array>

namespace zul::ui {

namespace {

constexpr auto kPatience = std::chrono::seconds(60);
constexpr auto kPassingDelay = std::chrono::seconds(10); // a head cools down, a cover is closed: no advice needed
constexpr auto kTick = std::chrono::milliseconds(500);   // half of what is shown, so that no second is skipped
// An answer leads to at most three steps behind each other on the printer's queue before the next question stands.
constexpr int kRoundsToSettle = 4;

// Weights of the phases, in their order; what takes longest weighs most.
constexpr std::array<double, 10> kWeights = {2, 4, 8, 4, 30, 20, 10, 4, 18, 0};
static_assert(kWeights.size() == static_cast<std::size_t>(UpdatePhase::done) + 1);

double shareOfPhase(const UpdateState& state) {
    const double bytes = state.bytesTotal > 0 ? static_cast<double>(state.bytesDone) / state.bytesTotal : 0;
    if (state.phase == UpdatePhase::writing) return bytes;
    if (state.phase != UpdatePhase::colorTables || state.tables == 0) return 0;
    return (static_cast<double>(state.table - 1) + bytes) / static_cast<double>(state.tables);
}

} // namespace

double shareDone(const UpdateState& state) {
    double before = 0;
    double all = 0;
    for (std::size_t phase = 0; phase < kWeights.size(); ++phase) {
        if (phase < static_cast<std::size_t>(state.phase)) before += kWeights[phase];
        all += kWeights[phase];
    }
    return (before + kWeights[static_cast<std::size_t>(state.phase)] * shareOfPhase(state)) / all;
}

UpdateFollower::UpdateFollower(Session& session, AlertPresenter& alerts)
    : _session(session), _alerts(alerts), _patience(kPatience) {
    _session.updateChanged = [this](const std::string& key) { heardOf(key); };
    _session.updateFound = [this](const std::string& key) { updateFound(key); };
    connect(&_alerts, &AlertPresenter::answered, this, [this](const QString& key) {
        _session.monitor.touch(key.toStdString()); // the time before was the operator's, not the printer's
        settle(key.toStdString(), kRoundsToSettle);
    });
    connect(&_timer, &QTimer::timeout, this, &UpdateFollower::tick);
    _timer.setInterval(kTick);
}

// ---- the beginning --------------------------------------------------------------------------------------------------

void UpdateFollower::begin(const Printer& printer) {
    const std::string key = printer->keyUSBdevice();
    if (isRestartedAndMute(key)) {
        // The first start may still come to its end by itself, and is followed as before.
        _session.monitor.touch(key);
        _updates[key].isPutAway = false;
        refresh(key);
        printer->updateFirmware();
        return;
    }
    printer->verifyFirmwareArchive(); // for the list of files; the engine judges it again by itself
    _session.monitor.beginUpdate(key, printer->firmwareVersion(), printer->newFirmwareVersion(),
                                 static_cast<std::int64_t>(printer->colorTableNames().size()));
    follow(key, printer);
    printer->updateFirmware();
}

// A printer that was found in its loader is updated without the action: its own alert leads there.
void UpdateFollower::updateFound(const std::string& key) {
    const Printer printer = _session.printerWithKey(key);
    if (!printer) return;
    _session.monitor.setOffer(key, printer->newFirmwareVersion(),
                              static_cast<std::int64_t>(printer->colorTableNames().size()));
    follow(key, printer);
}

void UpdateFollower::follow(const std::string& key, const Printer& printer) {
    FollowedUpdate& update = _updates[key] = FollowedUpdate{};
    update.name = nameOf(*printer);
    update.picture = qtext(printer->image());
    update.printer = printer;
    startTicking();
    refresh(key);
}

// ---- the course -----------------------------------------------------------------------------------------------------

// Not anew: what is heard of one printer must not put off the look at another.
void UpdateFollower::startTicking() {
    if (!_timer.isActive()) _timer.start();
}

void UpdateFollower::heardOf(const std::string& key) {
    const auto found = _updates.find(key);
    if (found == _updates.end()) return;
    const auto state = _session.monitor.state(key);
    const bool isNews = state && (state->lastProgress > found->second.putAwayAt ||
                                  (state->isStuck() && !found->second.wasStuck) || state->isFinished);
    if (isNews) found->second.isPutAway = false;
    startTicking();
    refresh(key);
}

void UpdateFollower::refresh(const std::string& key) {
    const auto found = _updates.find(key);
    const auto state = _session.monitor.state(key);
    if (found == _updates.end() || !state || found->second.end != FollowedUpdate::End::none) return;
    FollowedUpdate& update = found->second;
    update.state = *state;
    const bool isAsking = _alerts.pendingFor(key) > 0;
    // Who programs its flash is silent for longer than anybody else may be.
    const auto patience = state->phase == UpdatePhase::programming
                              ? std::max(_patience, expectedDuration(state->phase).value_or(_patience))
                              : _patience;
    const bool isSilent = now() - state->lastSign >= patience;
    const auto delay = now() - state->lastProgress;
    update.isStalled = state->isStuck() || (isSilent && (state->phase != UpdatePhase::checking || !isAsking));
    update.isWaiting =
        !isAsking && state->isWaitingUntilReady() && delay >= std::min<Clock::Duration>(kPassingDelay, _patience);
    update.mayBePutAway = update.isStalled || (update.isWaiting && delay >= _patience);
    if (state->isFinished) judge(key);
    Q_EMIT changed();
}

void UpdateFollower::tick() {
    bool isAnyOpen = false;
    for (auto& [key, update] : _updates) {
        if (update.end != FollowedUpdate::End::none) continue; // one that is put away may stall yet
        isAnyOpen = true;
        refresh(key);
    }
    if (!isAnyOpen) _timer.stop();
    Q_EMIT changed();
}

// By facts, whatever the engine's own report says.
void UpdateFollower::judge(const std::string& key) {
    FollowedUpdate& update = _updates[key];
    update.isStalled = update.isWaiting = update.isPutAway = false;
    update.endedAt = now();
    const bool succeeded = update.state.hasSucceeded();
    update.end = succeeded ? FollowedUpdate::End::succeeded : FollowedUpdate::End::failed;
    if (!succeeded) update.reason = qtext(reasonOfFailure(update.state));
    _session.monitor.endUpdate(key);
}

// An answer may have ended the update before it began ("Cancel"). That shows when everything that the answer set off
// has run and no further question came of it.
void UpdateFollower::settle(const std::string& key, int rounds) {
    const auto found = _updates.find(key);
    if (found == _updates.end() || found->second.end != FollowedUpdate::End::none) return;
    if (found->second.state.phase != UpdatePhase::checking || _alerts.pendingFor(key) > 0) return;
    if (rounds > 0) {
        // The one whose question was answered may have left, and another have come in its place.
        std::vector<Printer> both{_session.printerWithKey(key), found->second.printer.lock()};
        std::erase(both, nullptr);
        _session.afterQueues(both, [self = QPointer(this), key, rounds] {
            if (self) self->settle(key, rounds - 1);
        });
        return;
    }
    if (found->second.state.isRefused) found->second.reason = qtext(adviceForStall(found->second.state));
    found->second.isPutAway = false;
    found->second.end = FollowedUpdate::End::notStarted;
    found->second.endedAt = now();
    _session.monitor.endUpdate(key);
    Q_EMIT changed();
}

void UpdateFollower::dismiss(const std::string& key) {
    const auto found = _updates.find(key);
    if (found == _updates.end()) return;
    if (found->second.end == FollowedUpdate::End::none) {
        if (!found->second.mayBePutAway) return;
        found->second.isPutAway = true; // a printer that gets on after all is shown again
        found->second.putAwayAt = now();
        found->second.wasStuck = found->second.state.isStuck();
    } else {
        _updates.erase(found);
    }
    Q_EMIT changed();
}

// ---- what others ask ------------------------------------------------------------------------------------------------

QString UpdateFollower::reasonAgainst(const std::string& key) const {
    const auto found = _updates.find(key);
    if (found == _updates.end() || found->second.end != FollowedUpdate::End::none || found->second.isStalled) return {};
    return localized("This printer is being updated.");
}

bool UpdateFollower::isRestartedAndMute(const std::string& key) const {
    const auto found = _updates.find(key);
    if (found == _updates.end() || found->second.end != FollowedUpdate::End::none) return false;
    const UpdateState& state = found->second.state;
    return found->second.isStalled && state.phase >= UpdatePhase::programming && !state.isStuck();
}

bool UpdateFollower::isAnyUnderWay() const {
    for (const auto& [key, update] : _updates) {
        if (update.end != FollowedUpdate::End::none || update.isPutAway) continue;
        if (update.state.phase != UpdatePhase::checking) return true;
    }
    return false;
}

double UpdateFollower::progress() const {
    double sum = 0;
    int count = 0;
    for (const auto& [key, update] : _updates) {
        if (update.end != FollowedUpdate::End::none || update.isPutAway) continue;
        sum += shareDone(update.state);
        ++count;
    }
    return count == 0 ? 1 : sum / count;
}

} // namespace zul::ui
