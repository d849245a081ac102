// Keeps the machine from sleeping or shutting down, and its lid switch from doing either, while a printer is being
// updated. Without a login service no lock is held, and the log says why. Main queue unless noted.
#pragma once

#include "session/LoginService.h"

#include <functional>
#include <memory>
#include <string>

namespace zul {

/// What has become of the request for the lock.
enum class InhibitorState {
    idle,       // not requested
    asking,     // requested, no reply yet
    held,       // requested and taken
    unavailable // requested and refused: problem() has the reason
};

class SleepInhibitor {
  public:
    /// changed: null, or called on a private thread when a reply has arrived. It may only post or signal. It is not
    /// called after the destructor has returned.
    explicit SleepInhibitor(LoginServiceOptions options = {}, std::function<void()> changed = nullptr);
    /// Releases the lock.
    ~SleepInhibitor();
    SleepInhibitor(const SleepInhibitor&) = delete;
    SleepInhibitor& operator=(const SleepInhibitor&) = delete;

    /// Requests the lock on a private thread, or releases it at once. Repeating the same value does nothing. Never
    /// blocks.
    void setHeld(bool isHeld);
    /// True while the lock is requested, even if the system has no service for it.
    bool isWanted() const;
    /// For displays and tests; the update does not depend on it.
    InhibitorState state() const;
    /// Why the lock is unavailable, without a full stop; otherwise empty.
    std::string problem() const;

  private:
    struct Shared;
    static void ask(const std::shared_ptr<Shared>& shared, const std::string& why);

    const std::shared_ptr<Shared> _shared; // outlives this object while a request is under way
};

} // namespace zul
