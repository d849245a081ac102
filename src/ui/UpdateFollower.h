// Follows the updates that run in the window: starts them, keeps what each came to, and tells whether one is under way.
// It watches the engine and never changes what it does. GUI thread.
#pragma once

#include "Classes/UpdateMonitor.h"
#include "session/Session.h"
#include "ui/AlertPresenter.h"

#include <QObject>
#include <QTimer>
#include <map>
#include <optional>
#include <string>

namespace zul::ui {

/// One update, under way or ended.
struct FollowedUpdate {
    enum class End { none, notStarted, succeeded, failed };
    UpdateState state;
    std::string name; // of the printer
    QString picture;
    End end = End::none;
    QString reason;            // why it did not start or did not succeed
    bool isStalled = false;    // nothing was heard of the printer for long
    bool isWaiting = false;    // it answers, but is not ready, and that for a while
    bool mayBePutAway = false; // nothing has come nearer to the end for long
    bool isPutAway = false;    // and nobody waits for it any more, until it gets on
    Clock::TimePoint putAwayAt;
    bool wasStuck = false; // when it was put away
    Clock::TimePoint endedAt;
    std::weak_ptr<TBUSBPrinterZUL> printer; // whose action it was; its alerts stay its own when it leaves
};

class UpdateFollower final : public QObject {
    Q_OBJECT

  public:
    using Printer = Session::Printer;

    UpdateFollower(Session& session, AlertPresenter& alerts);

    /// The operator's action: begins to follow the printer, and starts its update.
    void begin(const Printer& printer);
    /// The updates by key, with what is known now.
    const std::map<std::string, FollowedUpdate>& updates() const { return _updates; }
    /// Forgets an update that has ended, and puts away one that has stalled.
    void dismiss(const std::string& key);

    /// Why a second update of this printer may not be started now; empty when it may.
    QString reasonAgainst(const std::string& key) const;
    /// It has taken the image and says nothing since: its status is the one that it had before, and the engine would go
    /// by that.
    bool isRestartedAndMute(const std::string& key) const;
    /// A printer must not lose its power now.
    bool isAnyUnderWay() const;
    /// Of all updates under way, from 0 to 1.
    double progress() const;
    /// How long a printer may be silent before advice is given and a new start is allowed.
    void setPatience(Clock::Duration patience) { _patience = patience; }

    Clock::TimePoint now() const { return _session.clock.now(); }

  Q_SIGNALS:
    /// Something has changed, or a second has passed while an update is under way.
    void changed();

  private:
    void follow(const std::string& key, const Printer& printer);
    void refresh(const std::string& key);
    void startTicking();
    void heardOf(const std::string& key);
    void tick();
    void settle(const std::string& key, int rounds);
    void judge(const std::string& key);
    void updateFound(const std::string& key);

    Session& _session;
    AlertPresenter& _alerts;
    std::map<std::string, FollowedUpdate> _updates;
    QTimer _timer;
    Clock::Duration _patience;
};

/// The part of its way that an update has behind it, from 0 to 1.
double shareDone(const UpdateState& state);

} // namespace zul::ui
