// Keeps the machine from sleeping or shutting down, and its lid from doing either, while a printer is in an update.
// Where the system has no login service nothing is held; the log says why. Main queue, but where noted.
#pragma once

#include "session/LoginService.h"

#include <functional>
#include <memory>
#include <string>

namespace zul {

enum class InhibitorState {
    idle,       // not wanted
    asking,     // wanted, no answer yet
    held,       // wanted and given
    unavailable // wanted and not to be had: problem() says why
};

class SleepInhibitor {
  public:
    /// changed: null, or called on a private thread when an answer has come; it may only post or signal, and is not
    /// called any more once the destructor has returned.
    explicit SleepInhibitor(LoginServiceOptions options = {}, std::function<void()> changed = nullptr);
    /// Gives the lock back.
    ~SleepInhibitor();
    SleepInhibitor(const SleepInhibitor&) = delete;
    SleepInhibitor& operator=(const SleepInhibitor&) = delete;

    /// Asks for the lock on a private thread, or gives it back at once. The same again does nothing. Never waits.
    void setHeld(bool isHeld);
    /// Whether or not there is a service that gives it.
    bool isWanted() const;
    InhibitorState state() const;
    /// Why the lock is unavailable, without an end stop; otherwise empty.
    std::string problem() const;

  private:
    struct Shared;
    static void ask(const std::shared_ptr<Shared>& shared, const std::string& why);

    const std::shared_ptr<Shared> _shared; // outlives this object for as long as a question is under way
};

} // namespace zul
